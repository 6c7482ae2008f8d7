# The batch MTF test on a 12-megapixel chart with four regions: the whole
# KestroLoader process and its parts (decode, regions, graph rendering, PNG
# encoding, regions picture) in-process; kestro-measure mtf on 512 x 512
# against its start-up.
if(TARGET kestro_mtf_gui AND TARGET KestroLoader AND TARGET kestro-measure)
  kestro_add_benchmark(bench_mtf_batch
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/bench_mtf_batch.cpp
    LIBS kestro_mtf_gui)
  add_dependencies(bench_mtf_batch KestroLoader kestro-measure)
  target_compile_definitions(bench_mtf_batch PRIVATE
    KESTRO_LOADER_PATH="$<TARGET_FILE:KestroLoader>"
    KESTRO_MEASURE_PATH="$<TARGET_FILE:kestro-measure>"
    KESTRO_SENSOR_DATA_PATH="${CMAKE_SOURCE_DIR}/resources/sensors")
endif()
