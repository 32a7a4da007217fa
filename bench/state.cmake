# Questions about the shared record against the loads of the same fields, for counting instructions (lookups_count.py).
add_executable(state_count state_count.cpp $<TARGET_OBJECTS:utils_ozu_objects>)
target_include_directories(state_count PRIVATE $<TARGET_PROPERTY:utils_ozu_objects,INTERFACE_INCLUDE_DIRECTORIES>)
target_link_libraries(state_count PRIVATE ozu_flags ozu_fake_platform_static OpenSSL::Crypto JPEG::JPEG PkgConfig::CARES)
