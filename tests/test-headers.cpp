// Nothing: CMake precompiles the headers of the tests for this source, and the tests reuse them.
