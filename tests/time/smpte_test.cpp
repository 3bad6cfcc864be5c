// SMPTE time-code tests (filled in with the implementation).
