# Chart detection against OpenCV's plain mcc detector in the same run: speed
# on 12-megapixel pictures, cancellation latency, placement on the shared
# photographs and correct/misplaced rates over a sweep of rendered scenes.
if(TARGET kestro_chartdetect)
  kestro_add_benchmark(bench_chartdetect SOURCES ${CMAKE_CURRENT_LIST_DIR}/bench_chartdetect.cpp
    LIBS kestro_chartdetect)
  target_compile_definitions(bench_chartdetect PRIVATE
    KESTRO_CHARTS_DIR="${CMAKE_SOURCE_DIR}/../shared/testdata/charts")
endif()
