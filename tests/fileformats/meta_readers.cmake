# Linux-side check of the metadata writers by an independent reader: sndfile-info must see the
# display chunk and the INFO items that the fileformats test program wrote with this library
# (skipped where sndfile-info is absent).
find_program(KY_SNDFILE_INFO sndfile-info)
if(KY_SNDFILE_INFO)
  add_test(NAME meta_independent_reader
    COMMAND sh -c "out=$(${KY_SNDFILE_INFO} '${CMAKE_BINARY_DIR}/bin/meta_written.wav') && \
echo \"$out\" | grep -q 'INAM : Written title' && echo \"$out\" | grep -q 'IART : Tellaro' && \
echo \"$out\" | grep -q 'ICMT : odd' && echo \"$out\" | grep -q 'DISP : 9'")
  set_tests_properties(meta_independent_reader PROPERTIES DEPENDS fileformats_test)
endif()
