# kel_add_test(name [LIBRARIES ...] [SOURCES ...]): one GoogleTest program, name.cpp in the current folder.
# SOURCES are sources of src/ that a test compiles in, because it asks functions that the library does not export.
find_package(GTest REQUIRED)

set(KEL_TEST_ENVIRONMENT
    "LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/lsan.supp:print_suppressions=0"
    "TSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/tsan.supp:halt_on_error=1:second_deadlock_stack=1"
    "UBSAN_OPTIONS=print_stacktrace=1")
if(CMAKE_CROSSCOMPILING) # an emulator does not let the leak sanitizer stop the other threads
    list(APPEND KEL_TEST_ENVIRONMENT "ASAN_OPTIONS=detect_leaks=0")
endif()

# Test programs are optimised for a quick build; what they test keeps its own flags.
set(KEL_QUICK_BUILD $<$<NOT:$<CONFIG:Debug>>:-O1> -g1)

function(kel_add_test name)
    cmake_parse_arguments(arg "" "" "LIBRARIES;SOURCES" ${ARGN})
    list(TRANSFORM arg_SOURCES PREPEND ${PROJECT_SOURCE_DIR}/src/)
    add_executable(${name} ${name}.cpp ${arg_SOURCES})
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests ${PROJECT_SOURCE_DIR}/src)
    target_compile_options(${name} PRIVATE ${KEL_QUICK_BUILD})
    target_link_libraries(${name} PRIVATE kel_flags kel_utils kel_platform_link ${arg_LIBRARIES} GTest::gmock
        GTest::gtest_main)
    if(arg_SOURCES)
        kel_count_executions(${name})
    endif()
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES TIMEOUT 300 ENVIRONMENT "${KEL_TEST_ENVIRONMENT}")
endfunction()
