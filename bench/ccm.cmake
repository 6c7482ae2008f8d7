# Colour correction on the shared chart photographs against the published
# least-squares, root-polynomial and dE00-minimising fits on the same patches.
if(TARGET colorcal AND TARGET kestro_chartdetect AND TARGET kestro_color)
  kestro_add_benchmark(bench_ccm SOURCES ${CMAKE_CURRENT_LIST_DIR}/bench_ccm.cpp
    LIBS colorcal kestro_color kestro_chartdetect kestro_imaging)
  target_compile_definitions(bench_ccm PRIVATE
    KESTRO_CHARTS_DIR="${CMAKE_SOURCE_DIR}/../shared/testdata/charts")
endif()
