# The batch uniformity test on a 12-megapixel flat field: the whole
# KestroLoader process, and its parts (decode, grids and zones, chart
# rendering, PNG encoding) in-process.
if(TARGET kestro_uniformity_gui AND TARGET KestroLoader)
  kestro_add_benchmark(bench_uniformity_batch
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/bench_uniformity_batch.cpp
    LIBS kestro_uniformity_gui)
  add_dependencies(bench_uniformity_batch KestroLoader)
  target_compile_definitions(bench_uniformity_batch PRIVATE
    KESTRO_LOADER_PATH="$<TARGET_FILE:KestroLoader>"
    KESTRO_SENSOR_DATA_PATH="${CMAKE_SOURCE_DIR}/resources/sensors")
endif()
