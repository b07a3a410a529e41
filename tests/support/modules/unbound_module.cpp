// A module that needs a function that nobody has.

extern "C" int missing_function();

extern "C" __attribute__((visibility("default"))) int unbound_number() {
    return missing_function();
}
