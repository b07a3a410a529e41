// The tour: runs the families of Ostrel on real input, one station after the other.

#include <cstdio>
#include <cstring>
#include <exception>

#include "ostrel/core/exception.h"
#include "tour.h"
#include "wexlog/wexlog.h"

namespace {

struct Station {
    const char *title;
    void (*show)();
};

constexpr Station kStations[] = {
    {"ID mapping: from numbers to names and back", id_mapping_station},
    {"Text: token lists, words, escapes, a profile file", text_station},
    {"Charsets: a letter in Shift_JIS, the encoded words of a mail header", charset_station},
    {"Validators: the form of e-mail addresses and directory paths", validators_station},
    {"Time: the current time, text, differences, an hour that occurs twice", time_station},
    {"Files: creates, walks, copies and deletes a directory tree", file_station},
    {"Registry: settings that a second process changes, and a callback", registry_station},
    {"Modules: versions of files, and a module loaded by two roads", modules_station},
};

int show_all() {
    for (const Station &station : kStations) {
        std::printf("\n== %s\n\n", station.title);
        station.show();
        std::fflush(stdout);
    }
    return 0;
}

}  // namespace

int main(int count, char **arguments) {
    if (count == 2 && std::strcmp(arguments[1], "--change-settings") == 0) {
        return change_settings();
    }
    for (int i = 1; i < count; ++i) {
        if (std::strcmp(arguments[i], "--trace") != 0) {
            std::fprintf(stderr, "usage: tour [--trace]\n");
            return 2;
        }
        DBG::AddErrorStreamSink();
    }
    try {
        return show_all();
    } catch (const OS::CException &failure) {
        OS::x_astring text;
        text.Format("%S", failure.GetErrorMsgEx().c_str());
        std::fprintf(stderr, "tour: %s\n", text.c_str());
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "tour: %s\n", failure.what());
    }
    return 1;
}
