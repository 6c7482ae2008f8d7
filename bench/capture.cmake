# One capture of a 12-megapixel frame from the image-source service to the
# picture the pages get, against copying the frame's pixels alone. Needs a
# session bus: run it under dbus-run-session.
if(TARGET kestro_acquisition AND TARGET kestro-imagesource)
  kestro_add_benchmark(bench_capture SOURCES ${CMAKE_CURRENT_LIST_DIR}/bench_capture.cpp
    LIBS kestro_acquisition Qt5::DBus)
  add_dependencies(bench_capture kestro-imagesource)
  target_compile_definitions(bench_capture PRIVATE
    KESTRO_IMAGESOURCE_BUILT="$<TARGET_FILE:kestro-imagesource>"
    KESTRO_SENSORS_DIR="${CMAKE_SOURCE_DIR}/resources/sensors")
endif()
