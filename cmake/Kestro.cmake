# Shared build helpers of the Kestro project.

# Qwt 6 for Qt 5 as Debian ships it (libqwt-qt5-dev).
find_path(QWT_INCLUDE_DIR qwt_plot.h PATHS /usr/include/qwt /usr/include/qt5/qwt)
find_library(QWT_LIBRARY NAMES qwt-qt5 qwt)
if(QWT_INCLUDE_DIR AND QWT_LIBRARY AND NOT TARGET Qwt::Qwt)
  add_library(Qwt::Qwt UNKNOWN IMPORTED)
  set_target_properties(Qwt::Qwt PROPERTIES
    IMPORTED_LOCATION ${QWT_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${QWT_INCLUDE_DIR}
    INTERFACE_COMPILE_DEFINITIONS QWT_DLL)
  set_property(TARGET Qwt::Qwt PROPERTY INTERFACE_LINK_LIBRARIES Qt5::Widgets Qt5::PrintSupport)
endif()

function(kestro_warnings target)
  if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wno-unused-parameter)
  endif()
endfunction()

# kestro_core_library(name SOURCES ... LIBS ...): a headless module library
# (QtCore/QtGui only) that becomes part of kestro_core.
function(kestro_core_library name)
  cmake_parse_arguments(K "" "" "SOURCES;LIBS" ${ARGN})
  add_library(${name} STATIC ${K_SOURCES})
  target_link_libraries(${name} PUBLIC Qt5::Core Qt5::Gui ${K_LIBS})
  kestro_warnings(${name})
  set_property(GLOBAL APPEND PROPERTY KESTRO_CORE_LIBS ${name})
endfunction()

# kestro_gui_library(name SOURCES ... LIBS ...): a widget module library
# (pages, views, plots) that becomes part of kestro_gui.
function(kestro_gui_library name)
  cmake_parse_arguments(K "" "" "SOURCES;LIBS" ${ARGN})
  add_library(${name} STATIC ${K_SOURCES})
  target_link_libraries(${name} PUBLIC Qt5::Core Qt5::Gui Qt5::Widgets ${K_LIBS})
  kestro_warnings(${name})
  set_property(GLOBAL APPEND PROPERTY KESTRO_GUI_LIBS ${name})
endfunction()

# Links to kestro_core / kestro_gui from module directories are deferred until
# those aggregate targets exist (they are made after every module directory).
function(kestro_link_later target)
  set_property(GLOBAL APPEND PROPERTY KESTRO_DEFERRED_LINKS "${target}|${ARGN}")
endfunction()
function(kestro_finish_deferred_links)
  get_property(items GLOBAL PROPERTY KESTRO_DEFERRED_LINKS)
  foreach(item IN LISTS items)
    string(REPLACE "|" ";" parts "${item}")
    list(GET parts 0 target)
    list(REMOVE_AT parts 0)
    target_link_libraries(${target} PRIVATE ${parts})
  endforeach()
endfunction()

# kestro_add_test(name SOURCES ... [LIBS ...] [GUI]): a GoogleTest executable
# registered with ctest. Headless tests run on the offscreen platform; GUI
# tests use the display that scripts/test provides through xvfb-run.
function(kestro_add_test name)
  cmake_parse_arguments(K "GUI" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${K_SOURCES})
  target_link_libraries(${name} PRIVATE ${K_LIBS} kestro_testsupport GTest::gtest Qt5::Test)
  kestro_warnings(${name})
  set(env "KESTRO_SENSOR_DATA=${CMAKE_SOURCE_DIR}/resources/sensors"
          "KESTRO_TEST_DATA=${CMAKE_SOURCE_DIR}/tests/data"
          "KESTRO_SHARED_TESTDATA=${CMAKE_SOURCE_DIR}/../shared/testdata"
          "KESTRO_BUILD_DIR=${CMAKE_BINARY_DIR}"
          "KESTRO_NONINTERACTIVE=1")
  if(NOT K_GUI)
    list(APPEND env "QT_QPA_PLATFORM=offscreen")
  endif()
  # Sanitizer runs: report everything, with the project's suppressions of
  # findings inside uninstrumented system libraries.
  set(_supp ${CMAKE_SOURCE_DIR}/cmake/sanitizers)
  list(APPEND env
    "TSAN_OPTIONS=suppressions=${_supp}/tsan.supp halt_on_error=0 second_deadlock_stack=1 history_size=4"
    "ASAN_OPTIONS=detect_leaks=0 abort_on_error=0"
    "UBSAN_OPTIONS=print_stacktrace=1 suppressions=${_supp}/ubsan.supp")
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES ENVIRONMENT "${env}" TIMEOUT 900)
  if(K_GUI)
    set_tests_properties(${name} PROPERTIES LABELS gui)
  endif()
endfunction()
