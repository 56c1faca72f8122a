# kel_add_fuzzer(name [LIBRARIES ...] [SOURCES ...]): name_fuzz.cpp in the current folder, which defines
# LLVMFuzzerTestOneInput(). SOURCES are sources of src/ with functions that the library does not export.
#
# With KEL_BUILD_FUZZERS it becomes the libFuzzer program name_fuzz. With KEL_BUILD_TESTS the same source becomes the test
# name_corpus, in any compiler, which runs it over the files of corpus/name.
if(KEL_BUILD_FUZZERS)
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang" OR NOT KEL_SANITIZE)
        message(FATAL_ERROR "libFuzzer programs need clang and KEL_SANITIZE: use the preset fuzz")
    endif()
    target_compile_options(kel_flags INTERFACE -fsanitize=fuzzer-no-link) # what is fuzzed counts its branches
    # What libFuzzer provides to that code is found by name at run time, in the program.
    set(CMAKE_ENABLE_EXPORTS ON)
endif()
if(KEL_BUILD_TESTS)
    include(KelTest)
endif()

function(kel_add_fuzzer name)
    cmake_parse_arguments(arg "" "" "LIBRARIES;SOURCES" ${ARGN})
    list(TRANSFORM arg_SOURCES PREPEND ${PROJECT_SOURCE_DIR}/src/)
    set(programs)
    if(KEL_BUILD_FUZZERS)
        add_executable(${name}_fuzz ${name}_fuzz.cpp ${arg_SOURCES})
        target_link_options(${name}_fuzz PRIVATE -fsanitize=fuzzer)
        list(APPEND programs ${name}_fuzz)
    endif()
    if(KEL_BUILD_TESTS)
        add_executable(${name}_corpus ${name}_fuzz.cpp ${PROJECT_SOURCE_DIR}/fuzz/run_corpus.cpp ${arg_SOURCES})
        add_test(NAME ${name}_corpus COMMAND ${name}_corpus ${CMAKE_CURRENT_SOURCE_DIR}/corpus/${name})
        set_tests_properties(${name}_corpus PROPERTIES TIMEOUT 300 ENVIRONMENT "${KEL_TEST_ENVIRONMENT}")
        list(APPEND programs ${name}_corpus)
    endif()
    foreach(program IN LISTS programs)
        target_include_directories(${program} PRIVATE ${PROJECT_SOURCE_DIR}/fuzz ${PROJECT_SOURCE_DIR}/tests
            ${PROJECT_SOURCE_DIR}/src)
        target_link_libraries(${program} PRIVATE kel_flags kel_utils kel_platform_link ${arg_LIBRARIES})
    endforeach()
endfunction()
