// This file is empty: its target precompiles the headers of the tests.
