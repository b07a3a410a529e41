// A module of the tests, which has a version block.

extern "C" int function_of_versioned_module() {
    return 7;
}
