# Shared build rules: one static library per source folder, warnings as errors,
# optional sanitizers, and test executables picked up by file name.

set(QUILLORN_WARNINGS -Wall -Wextra -Wpedantic -Werror -Wno-error=deprecated-declarations)

function(quillorn_apply_options target)
  target_compile_options(${target} PRIVATE ${QUILLORN_WARNINGS})
  if(QUILLORN_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    target_link_options(${target} PRIVATE -fsanitize=address,undefined)
  endif()
endfunction()

# quillorn_library(<name> [QT] DEPS <targets...>)
# Every .cpp/.h below the calling folder belongs to the library, so adding a
# class never means editing a CMakeLists.txt.
function(quillorn_library name)
  cmake_parse_arguments(ARG "QT" "" "DEPS" ${ARGN})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS
       ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/*.h)
  list(FILTER sources EXCLUDE REGEX "/main\\.cpp$")
  if(NOT sources)
    # A layer whose classes are still to come: keep the dependency chain intact.
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE ${PROJECT_SOURCE_DIR}/src ${PROJECT_BINARY_DIR}/generated)
    target_link_libraries(${name} INTERFACE ${ARG_DEPS})
    return()
  endif()
  add_library(${name} STATIC ${sources})
  if(ARG_QT)
    set_target_properties(${name} PROPERTIES AUTOMOC ON)
  endif()
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src ${PROJECT_BINARY_DIR}/generated)
  target_link_libraries(${name} PUBLIC ${ARG_DEPS})
  if(QUILLORN_SANITIZE)
    target_link_options(${name} INTERFACE -fsanitize=address,undefined)
  endif()
  quillorn_apply_options(${name})
endfunction()

# quillorn_tests(DEPS <targets...> [LABELS <labels...>])
# test_*.cpp: GoogleTest executables (engine code without Qt);
# tst_*.cpp: Qt Test executables (QTEST_MAIN / QTEST_GUILESS_MAIN).
# A file whose first line holds "// ctest-labels: a;b" gets those CTest labels.
function(quillorn_tests)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  file(GLOB gtests CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/test_*.cpp)
  file(GLOB qtests CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/tst_*.cpp)
  get_filename_component(folder ${CMAKE_CURRENT_SOURCE_DIR} NAME)
  foreach(src ${gtests} ${qtests})
    get_filename_component(stem ${src} NAME_WE)
    set(target ${folder}_${stem})
    add_executable(${target} ${src})
    set_target_properties(${target} PROPERTIES AUTOMOC ON)
    target_link_libraries(${target} PRIVATE ${ARG_DEPS} quillorn_testsupport)
    if(src IN_LIST gtests)
      target_link_libraries(${target} PRIVATE GTest::gtest GTest::gmock GTest::gtest_main)
    else()
      target_link_libraries(${target} PRIVATE Qt6::Test)
    endif()
    quillorn_apply_options(${target})
    add_test(NAME ${target} COMMAND ${target})
    set(env "QT_QPA_PLATFORM=offscreen" "QUILLORN_SOURCE_DIR=${PROJECT_SOURCE_DIR}"
            "ASAN_OPTIONS=detect_leaks=0:abort_on_error=1"
            "UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1"
            # A bus that refuses at once: without any address libdbus would fork a
            # bus launcher from a threaded, sanitized process, which can hang.
            "DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent/quillorn-test-bus"
            # And no machine's UDisks2: the drives a test sees are the ones it serves.
            "DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent/quillorn-test-system-bus")
    set_tests_properties(${target} PROPERTIES ENVIRONMENT "${env}" TIMEOUT 600 SKIP_RETURN_CODE 77)
    file(STRINGS ${src} first LIMIT_COUNT 1)
    if(first MATCHES "ctest-labels: *(.*)$")
      set_tests_properties(${target} PROPERTIES LABELS "${CMAKE_MATCH_1}")
    endif()
  endforeach()
endfunction()
