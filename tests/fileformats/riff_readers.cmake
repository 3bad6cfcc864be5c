# Shell checks of the chunk functions (exit 77: skipped): files written by the library and
# read by independent readers (libsndfile, SoX), and kytool chunks on the fixtures.
add_executable(riff_writer ${CMAKE_CURRENT_SOURCE_DIR}/riff_writer.cpp)
target_link_libraries(riff_writer PRIVATE tellarok_import)
target_link_options(riff_writer PRIVATE ${KY_EXE_LINK})
add_test(NAME riff_independent_readers COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/riff_readers.sh
         $<TARGET_FILE:riff_writer> ${CMAKE_CURRENT_BINARY_DIR}/riff_readers)
add_test(NAME kytool_chunks COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/kytool_chunks.sh
         $<TARGET_FILE:kytool> ${CMAKE_SOURCE_DIR}/tests/data/riff)
set_tests_properties(riff_independent_readers kytool_chunks PROPERTIES SKIP_RETURN_CODE 77
  TIMEOUT 180 ENVIRONMENT "WINEPREFIX=${CMAKE_BINARY_DIR}/wineprefix;WINEDEBUG=-all")
