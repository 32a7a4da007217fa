# The decoder's interface is laid out differently in each of its versions, and libraries of all of them go by the same
# name: the one found here has to be version 62, as libjpeg-turbo has it. Whatever else is refused before it compiles.

include(CheckCSourceCompiles)
find_package(JPEG REQUIRED)

set(CMAKE_REQUIRED_LIBRARIES JPEG::JPEG)
check_c_source_compiles("
#include <stdio.h>
#include <jpeglib.h>
#if JPEG_LIB_VERSION != 62
#error
#endif
int main(void) { return 0; }" OZU_JPEG_IS_62)
unset(CMAKE_REQUIRED_LIBRARIES)
if(NOT OZU_JPEG_IS_62)
    set(_ozu_found "${JPEG_VERSION}")
    if(NOT _ozu_found)
        set(_ozu_found "unknown")
    endif()
    message(FATAL_ERROR "The libjpeg in ${JPEG_INCLUDE_DIRS} has the interface of version ${_ozu_found}. This library needs the "
        "interface of version 62, as libjpeg-turbo has it (Debian: libjpeg62-turbo-dev); name another one with "
        "JPEG_INCLUDE_DIR and JPEG_LIBRARY.")
endif()
