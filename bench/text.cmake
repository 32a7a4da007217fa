# String and number conversions.
ozu_bench(text_bench
    SOURCES text_bench.cpp
    LIBRARY_SOURCES text/bits.cpp text/copies.cpp text/decimal.cpp text/hexadecimal.cpp text/radix.cpp)
