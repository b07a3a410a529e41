// The library that the module of the tests needs.

extern "C" __attribute__((visibility("default"))) int needed_number() {
    return 42;
}
