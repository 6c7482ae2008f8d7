# Whole kestro-measure processes: mtf on 512 x 512 with four regions and the
# bare start-up, in the lean program against kestro-measure-full.
if(TARGET kestro-measure AND TARGET kestro-measure-full)
  kestro_add_benchmark(bench_measure_process
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/bench_measure_process.cpp
    LIBS Qt5::Gui)
  add_dependencies(bench_measure_process kestro-measure kestro-measure-full)
  target_compile_definitions(bench_measure_process PRIVATE
    KESTRO_MEASURE_DIR="$<TARGET_FILE_DIR:kestro-measure>")
endif()
