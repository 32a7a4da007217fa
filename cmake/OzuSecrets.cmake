# The two constants that every installation sets for itself. Each is hexadecimal, or @/path/of/a/file that holds
# the hexadecimal text; such a file stays outside the source tree.
#
# ozu_secret(NAME BYTES DEFAULT PURPOSE) declares the cache variable NAME, checks it and sets NAME_HEX in the
# caller's scope: upper-case, BYTES * 2 digits.

function(ozu_secret name bytes default purpose)
    set(${name} "${default}" CACHE STRING "${purpose}: ${bytes} bytes in hexadecimal, or @/path of a file with them")
    mark_as_advanced(${name})
    set(text "${${name}}")
    if(text MATCHES "^@")
        string(SUBSTRING "${text}" 1 -1 path)
        if(NOT IS_ABSOLUTE "${path}" OR NOT EXISTS "${path}" OR IS_DIRECTORY "${path}")
            message(FATAL_ERROR "${name}: '${path}' is not the absolute path of a file")
        endif()
        file(REAL_PATH "${path}" real)
        cmake_path(IS_PREFIX PROJECT_SOURCE_DIR "${real}" NORMALIZE inside)
        if(inside)
            message(FATAL_ERROR "${name}: keep '${path}' outside the source tree")
        endif()
        set_property(DIRECTORY "${PROJECT_SOURCE_DIR}" APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${path}")
        file(READ "${path}" text)
        string(STRIP "${text}" text)
    endif()
    # The value itself is never printed: configure logs are kept and passed around.
    string(LENGTH "${text}" digits)
    math(EXPR wanted "${bytes} * 2")
    if(NOT digits EQUAL wanted OR NOT text MATCHES "^[0-9A-Fa-f]+$")
        message(FATAL_ERROR "${name}: ${bytes} bytes are needed, as ${wanted} hexadecimal digits and nothing else")
    endif()
    string(TOUPPER "${text}" text)
    if(text STREQUAL default AND CMAKE_BUILD_TYPE MATCHES "^(Release|MinSizeRel)$")
        message(WARNING "${name} has its development default; set it for every build that ships")
    endif()
    set(${name}_HEX "${text}" PARENT_SCOPE)
endfunction()

# ozu_secret_shares(HEX FIRST SECOND): two lists of C bytes whose XOR is the value. The split is the same for the
# same value, so that builds stay reproducible.
function(ozu_secret_shares hex first second)
    string(SHA256 pad "${hex}")
    string(LENGTH "${hex}" digits)
    math(EXPR last "${digits} - 2")
    foreach(position RANGE 0 ${last} 2)
        string(SUBSTRING "${hex}" ${position} 2 byte)
        string(SUBSTRING "${pad}" ${position} 2 share)
        math(EXPR other "0x${byte} ^ 0x${share}")
        math(EXPR share "0x${share}")
        list(APPEND shares ${share})
        list(APPEND others ${other})
    endforeach()
    list(JOIN shares ", " shares)
    list(JOIN others ", " others)
    set(${first} "${shares}" PARENT_SCOPE)
    set(${second} "${others}" PARENT_SCOPE)
endfunction()

ozu_secret(OZU_DB_CIPHER_MASK 20 000102030405060708090A0B0C0D0E0F10111213 "Mask of the database cipher key")
ozu_secret(OZU_VIDEO_IV 16 00000000000000000000000000000000 "IV of the protected video files")
