# Noise engine over 200 frames of 4000 x 3000 RGB (24 patches of 100 x 100)
# against the time to load one frame, with the peak memory of streaming runs.
if(TARGET kestro_noise)
  kestro_add_benchmark(bench_noise SOURCES ${CMAKE_CURRENT_LIST_DIR}/bench_noise.cpp LIBS kestro_noise)
endif()
