# Raw load plus demosaic of a 4000 x 3000 12-bit mosaic against OpenCV's
# edge-aware demosaic of the same mosaic.
kestro_add_benchmark(bench_demosaic SOURCES ${CMAKE_CURRENT_LIST_DIR}/bench_demosaic.cpp
  LIBS kestro_imaging ${OpenCV_LIBS})
target_include_directories(bench_demosaic PRIVATE ${OpenCV_INCLUDE_DIRS})
