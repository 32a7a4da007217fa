# String and number conversions.
find_package(absl REQUIRED)
ozu_bench(text_bench
    SOURCES text_bench.cpp
    LIBRARY_SOURCES text/bits.cpp text/copies.cpp text/decimal.cpp text/hexadecimal.cpp text/radix.cpp text/searches.cpp
    LIBRARIES absl::strings OpenSSL::Crypto)

# The same for counting instructions (count.py).
add_executable(text_count text_count.cpp $<TARGET_OBJECTS:text_bench_objects>)
target_include_directories(text_count PRIVATE $<TARGET_PROPERTY:utils_ozu_objects,INTERFACE_INCLUDE_DIRECTORIES>)
target_link_libraries(text_count PRIVATE ozu_flags absl::strings OpenSSL::Crypto)
