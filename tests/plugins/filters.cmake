# The test filters: one COM in-process server source built four ways (see test_filter.cpp).
# The tests register them in the prefix's registry the way filters register themselves.
foreach(variant ext plain crash hang)
  string(TOUPPER ${variant} upper)
  add_library(ky_tf_${variant} SHARED ${CMAKE_CURRENT_SOURCE_DIR}/test_filter.cpp)
  target_compile_definitions(ky_tf_${variant} PRIVATE KYTF_VARIANT_${upper})
  set_target_properties(ky_tf_${variant} PROPERTIES PREFIX "")
  # COM looks the entry points up by their plain names.
  target_link_options(ky_tf_${variant} PRIVATE -static -static-libgcc -static-libstdc++ -Wl,--kill-at)
  target_link_libraries(ky_tf_${variant} PRIVATE ole32 uuid advapi32 strmiids)
endforeach()
# The test program is defined after this file is included.
cmake_language(DEFER DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR} CALL add_dependencies plugins_test ky_tf_ext ky_tf_plain ky_tf_crash ky_tf_hang)
