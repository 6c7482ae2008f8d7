# The pages' Capture buttons with a 12-megapixel picture of the image
# source's scenes: capture slot to picture painted, file written, against the
# one per-pixel copy of a capture.
if(TARGET kestro_color_page AND TARGET kestro_mtf_gui AND TARGET kestro_uniformity_gui
   AND TARGET kestro_imagesource_scene)
  kestro_add_benchmark(bench_pagecapture SOURCES ${CMAKE_CURRENT_LIST_DIR}/bench_pagecapture.cpp
    LIBS kestro_color_page kestro_mtf_gui kestro_uniformity_gui kestro_imagesource_scene)
endif()
