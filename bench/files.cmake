# File ciphers and pictures against the openssl tool and plain libjpeg: files_bench.py runs files_bench.
add_executable(files_bench files_bench.cpp
    "${PROJECT_SOURCE_DIR}/tests/support/pictures.cpp"
    "${PROJECT_SOURCE_DIR}/tests/fuzz/silent_platform.cpp"
    $<TARGET_OBJECTS:utils_ozu_objects>)
target_include_directories(files_bench PRIVATE
    $<TARGET_PROPERTY:utils_ozu_objects,INTERFACE_INCLUDE_DIRECTORIES>
    "${PROJECT_SOURCE_DIR}/tests/support")
target_compile_definitions(files_bench PRIVATE OPENSSL_SUPPRESS_DEPRECATED)
target_link_libraries(files_bench PRIVATE ozu_flags ozu_fake_platform_static OpenSSL::Crypto
    JPEG::JPEG PkgConfig::CARES)
