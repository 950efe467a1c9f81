// Nothing: its target precompiles the headers of the tests.
