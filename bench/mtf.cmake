# Slanted-edge MTF: CColorCalibrate::CalculateMTF on 100 x 200 and 300 x 600
# regions of a 24-megapixel PNG (decoded once, then cached), the region
# computation alone, and the file decode that a first call pays.
if(TARGET colorcal)
  kestro_add_benchmark(bench_mtf SOURCES ${CMAKE_CURRENT_LIST_DIR}/bench_mtf.cpp LIBS colorcal)
endif()
