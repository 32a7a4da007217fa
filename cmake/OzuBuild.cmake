# Language level, warnings, hardening and linker flags, shared by every target of the project.

include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
include(CheckPIESupported)
check_pie_supported()

set(CMAKE_C_STANDARD 11)
set(CMAKE_C_EXTENSIONS ON)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
# Everything runs from the build tree by its own path; OzuInstall says what installed files carry.
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()
# The library is tuned for size and speed alike; -O3 only makes it larger.
set(CMAKE_C_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")

# Compiled objects are shared between build folders and checkouts: ccache sees paths below the tree as relative.
find_program(OZU_CCACHE ccache)
if(OZU_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    # What it must not be too strict about for a source with a precompiled header to be found again.
    set(launcher "${CMAKE_COMMAND}" -E env "CCACHE_BASEDIR=${PROJECT_SOURCE_DIR}" CCACHE_NOHASHDIR=1
        CCACHE_SLOPPINESS=pch_defines,time_macros CCACHE_DEPEND=1 "${OZU_CCACHE}")
    set(CMAKE_C_COMPILER_LAUNCHER ${launcher})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${launcher})
endif()

# What runs once per build is built to be built quickly; only what ships is tuned. Tests on the panel's machine run under
# emulation, where they are slow enough as it is: there they are optimised a little, and gcc guesses at buffer sizes that
# it cannot see.
set(OZU_QUICK_BUILD
    $<$<CONFIG:RelWithDebInfo>:-O0;-g1;-Wno-cpp> # glibc tells that its checks need -O
    $<$<CONFIG:MinSizeRel>:-O1;-g1;-Wno-stringop-overflow;-Wno-stringop-overread;-Wno-array-bounds;-Wno-maybe-uninitialized>)

# ozu_precompile(TARGET HEADERS...): large headers that most sources of a target include are read once. The sources
# include them all the same.
function(ozu_precompile target)
    list(TRANSFORM ARGN REPLACE "(.+)" "$<$<COMPILE_LANGUAGE:CXX>:\\1>")
    target_precompile_headers(${target} PRIVATE ${ARGN})
    # So that the compiler cache sees which header was used.
    target_compile_options(${target} PRIVATE $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-fpch-preprocess>)
endfunction()

function(_ozu_add_if_supported target flag)
    string(MAKE_C_IDENTIFIER "OZU_HAS${flag}" known)
    # clang only warns of one that the machine has no use for.
    set(CMAKE_REQUIRED_FLAGS -Werror)
    check_cxx_compiler_flag("${flag}" ${known})
    if(${known})
        target_compile_options(${target} INTERFACE "${flag}")
    endif()
endfunction()

# ozu_flags: what every target of ours compiles and links with.
add_library(ozu_flags INTERFACE)
target_compile_options(ozu_flags INTERFACE
    -Wall -Wextra -Wpedantic $<$<BOOL:${OZU_WARNINGS_ARE_ERRORS}>:-Werror>
    -Wshadow -Wconversion -Wsign-conversion -Wcast-align -Wcast-qual -Wpointer-arith
    -Wformat=2 -Werror=format-security -Wundef -Wvla
    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast;-Wnon-virtual-dtor;-Woverloaded-virtual;-Wextra-semi>
    $<$<COMPILE_LANGUAGE:C>:-Wstrict-prototypes;-Wmissing-prototypes>
    -Wno-variadic-macros $<$<CXX_COMPILER_ID:Clang>:-Wno-gnu-zero-variadic-macro-arguments>
    -fno-strict-overflow -fno-delete-null-pointer-checks)
# On the panel's 32-bit ARM, gcc tells with every va_list use that its ABI changed in 2012.
_ozu_add_if_supported(ozu_flags "-Wno-psabi")
target_compile_definitions(ozu_flags INTERFACE _GNU_SOURCE)
# Where it is the default anyway it would only rename open to open64, stat to stat64 and so on.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    target_compile_definitions(ozu_flags INTERFACE _FILE_OFFSET_BITS=64)
endif()

if(OZU_SANITIZE)
    # The check of virtual tables asks the kernel whether it may look (pipe, write), and ends the process when a test lets
    # these calls fail.
    target_compile_options(ozu_flags INTERFACE -fsanitize=${OZU_SANITIZE} -fno-sanitize-recover=all
        -fno-sanitize=vptr -fno-omit-frame-pointer -g)
    target_link_options(ozu_flags INTERFACE -fsanitize=${OZU_SANITIZE})
else()
    foreach(flag -fstack-protector-strong -fstack-clash-protection -ftrivial-auto-var-init=zero)
        _ozu_add_if_supported(ozu_flags "${flag}")
    endforeach()
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64|i.86")
        _ozu_add_if_supported(ozu_flags "-fcf-protection=full")
    endif()
    # Fortify works on optimised code only, and a distribution's compiler may bring its own default. Level 3 needs a
    # compiler that knows the sizes of what is allocated at run time.
    check_cxx_source_compiles("int main(int n, char **a) { return n == 7 && __builtin_dynamic_object_size(a[0], 0) == 7U; }"
        OZU_HAS_DYNAMIC_OBJECT_SIZE)
    set(fortify 2)
    if(OZU_HAS_DYNAMIC_OBJECT_SIZE)
        set(fortify 3)
    endif()
    target_compile_options(ozu_flags INTERFACE
        $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=${fortify}>)
    target_compile_definitions(ozu_flags INTERFACE $<$<COMPILE_LANGUAGE:CXX>:_GLIBCXX_ASSERTIONS>)
endif()
# Only the library is measured (src/CMakeLists.txt, tests/unit); whatever links its objects needs the counters' run time.
if(OZU_COVERAGE)
    target_link_options(ozu_flags INTERFACE --coverage)
endif()

# Programs and libraries alike.
target_link_options(ozu_flags INTERFACE
    -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,-z,separate-code)

# ozu_shared_flags: for our shared objects, on top of ozu_flags.
add_library(ozu_shared_flags INTERFACE)
target_link_libraries(ozu_shared_flags INTERFACE ozu_flags)
target_link_options(ozu_shared_flags INTERFACE -Wl,--as-needed)
if(NOT OZU_SANITIZE) # a sanitizer's run time comes with the program
    target_link_options(ozu_shared_flags INTERFACE -Wl,-z,defs)
endif()
