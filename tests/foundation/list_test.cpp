// Tests of the foundation family (filled in with its implementation).
