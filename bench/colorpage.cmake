# The chart page on 12-megapixel frames: colour difference processing and
# report against loading the frame, noise over 16 frames against loading
# them.
if(TARGET kestro_color_page)
  kestro_add_benchmark(bench_colorpage SOURCES ${CMAKE_CURRENT_LIST_DIR}/bench_colorpage.cpp
    LIBS kestro_color_page)
endif()
