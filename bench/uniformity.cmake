# Uniformity: four channel grids and the CPIQ zones of a 6000 x 4000 picture
# against a plain read of every pixel (the memory-bandwidth floor).
if(TARGET kestro_uniformity)
  kestro_add_benchmark(bench_uniformity SOURCES ${CMAKE_CURRENT_LIST_DIR}/bench_uniformity.cpp
    LIBS kestro_uniformity)
endif()
