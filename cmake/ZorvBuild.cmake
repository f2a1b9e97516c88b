# How everything here is compiled: warnings are errors, sanitizers on request.
add_library(zorv_flags INTERFACE)
target_compile_options(zorv_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2
    $<$<BOOL:${ZORV_WERROR}>:-Werror>)
if(ZORV_SANITIZE OR ZORV_FUZZ)
    target_compile_options(zorv_flags INTERFACE
        -fsanitize=address,undefined -fno-sanitize=vptr -fno-sanitize-recover=all
        -fno-omit-frame-pointer)
    target_link_options(zorv_flags INTERFACE
        -fsanitize=address,undefined -fno-sanitize=vptr)
endif()
if(ZORV_FUZZ)
    target_compile_options(zorv_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()

if(ZORV_TSAN)
    target_compile_options(zorv_flags INTERFACE -fsanitize=thread)
    target_link_options(zorv_flags INTERFACE -fsanitize=thread)
endif()

# What the library itself is compiled with: C++ without its runtime.
add_library(zorv_library_flags INTERFACE)
target_link_libraries(zorv_library_flags INTERFACE zorv_flags)
target_include_directories(zorv_library_flags INTERFACE
    ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src)
target_compile_definitions(zorv_library_flags INTERFACE _GNU_SOURCE)
target_compile_options(zorv_library_flags INTERFACE
    $<$<CONFIG:Release>:-g> # for those who compare interfaces; what is shipped is stripped of it
    -fPIC -fvisibility=hidden -fno-semantic-interposition -ffunction-sections -fdata-sections
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions;-fno-rtti;-fno-threadsafe-statics>)

include(CheckCXXCompilerFlag)
include(CheckCXXSymbolExists)
check_cxx_symbol_exists(__aarch64__ stdint.h ZORV_FOR_AARCH64)
check_cxx_compiler_flag(-mno-outline-atomics ZORV_CAN_INLINE_ATOMICS)
if(ZORV_FOR_AARCH64 AND ZORV_CAN_INLINE_ATOMICS) # what asks the processor would be a constructor
    target_compile_options(zorv_library_flags INTERFACE -mno-outline-atomics)
endif()
if(NOT ZORV_UNWIND_TABLES)
    target_compile_options(zorv_library_flags INTERFACE
        -fno-unwind-tables -fno-asynchronous-unwind-tables)
endif()
if(ZORV_COVERAGE)
    target_compile_options(zorv_library_flags INTERFACE --coverage)
endif()

# zorv_folder(NAME [SMALL] [LIBRARIES ...] SOURCES ...): one folder of src/ as an object library. Where
# nothing is called often, SMALL has a release made for size.
function(zorv_folder name)
    cmake_parse_arguments(arg "SMALL" "" "SOURCES;LIBRARIES" ${ARGN})
    add_library(zorv_${name} OBJECT ${arg_SOURCES})
    target_link_libraries(zorv_${name} PRIVATE zorv_library_flags ${arg_LIBRARIES})
    if(arg_SMALL)
        target_compile_options(zorv_${name} PRIVATE $<$<CONFIG:Release>:-Os>)
    endif()
    set_property(GLOBAL APPEND PROPERTY ZORV_FOLDERS zorv_${name})
endfunction()
