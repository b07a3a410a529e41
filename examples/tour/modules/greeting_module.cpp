// A module that the modules' station loads. On Windows the function would be __declspec(dllexport).

extern "C" [[gnu::visibility("default")]] const char *greeting() {
    return "hello from a module";
}
