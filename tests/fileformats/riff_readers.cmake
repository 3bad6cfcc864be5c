# Files written by the chunk writers, read back by independent readers (libsndfile and SoX)
# on the build machine. The check is skipped (exit 77) where neither reader is installed.
add_executable(riff_writer ${CMAKE_CURRENT_SOURCE_DIR}/riff_writer.cpp)
target_link_libraries(riff_writer PRIVATE tellarok_import)
target_link_options(riff_writer PRIVATE ${KY_EXE_LINK})
find_program(KY_BASH bash)
if(KY_BASH)
  add_test(NAME riff_independent_readers
    COMMAND ${KY_BASH} ${CMAKE_CURRENT_SOURCE_DIR}/riff_readers.sh $<TARGET_FILE:riff_writer>
            ${CMAKE_CURRENT_BINARY_DIR}/riff_readers)
  set_tests_properties(riff_independent_readers PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 120
    ENVIRONMENT "WINEPREFIX=${CMAKE_BINARY_DIR}/wineprefix;WINEDEBUG=-all")
endif()

# kytool chunks on the fixtures, good and damaged.
if(KY_BASH)
  add_test(NAME kytool_chunks
    COMMAND ${KY_BASH} ${CMAKE_CURRENT_SOURCE_DIR}/kytool_chunks.sh $<TARGET_FILE:kytool>
            ${CMAKE_SOURCE_DIR}/tests/data/riff)
  set_tests_properties(kytool_chunks PROPERTIES TIMEOUT 180
    ENVIRONMENT "WINEPREFIX=${CMAKE_BINARY_DIR}/wineprefix;WINEDEBUG=-all")
endif()
