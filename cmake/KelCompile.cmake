# How everything here is compiled: languages, warnings, hardening, sanitizers.

set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS ON) # for the POSIX and Linux interfaces; the public headers are also compiled without
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

set(KEL_SANITIZE "" CACHE STRING "Value of -fsanitize= for everything, for example address,undefined")
set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)

# kel_flags: linked by every target of the tree.
add_library(kel_flags INTERFACE)
target_compile_options(kel_flags INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror
    $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
target_link_libraries(kel_flags INTERFACE Threads::Threads)
if(KEL_SANITIZE)
    target_compile_options(kel_flags INTERFACE -fsanitize=${KEL_SANITIZE} -fno-sanitize-recover=all
        -fno-omit-frame-pointer)
    target_link_options(kel_flags INTERFACE -fsanitize=${KEL_SANITIZE})
endif()

# kel_hardening_flags: linked by all that is shipped. tests/contract/hardening.py looks at the result.
add_library(kel_hardening_flags INTERFACE)
target_compile_options(kel_hardening_flags INTERFACE -fstack-protector-strong)
target_link_options(kel_hardening_flags INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack)
if(CMAKE_SYSTEM_PROCESSOR STREQUAL aarch64) # sign return addresses, and mark where indirect branches may go
    target_compile_options(kel_hardening_flags INTERFACE -mbranch-protection=standard)
endif()
if(NOT KEL_SANITIZE)
    # The same source gives the same file in any folder; debuggers look for sources from the top of the tree.
    target_compile_options(kel_hardening_flags INTERFACE
        $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>
        $<$<NOT:$<CONFIG:Debug>>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.>)
endif()
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON) # an absolute run path would leave its length behind in what is installed

# kel_library_flags: what shipped libraries have on top: hidden visibility, and calls without detours.
add_library(kel_library_flags INTERFACE)
target_link_libraries(kel_library_flags INTERFACE kel_flags kel_hardening_flags)
# A call of another library goes through its address and not through a stub (-fno-plt), and can still be interposed; a
# call of an exported function from its own source is a direct one (-fno-semantic-interposition).
target_compile_options(kel_library_flags INTERFACE -fvisibility=hidden -fno-plt -fno-semantic-interposition)
if(NOT KEL_SANITIZE)
    target_link_options(kel_library_flags INTERFACE -Wl,--no-undefined)
endif()
