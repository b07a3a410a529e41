// Any bytes as a configuration file: read in any mode, cut into tokens by each of the callbacks,
// and loaded as an ID mapping. The first byte chooses the mode.

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "ostrel/config/cm_IdMapping.h"
#include "ostrel/config/cm_ini_reader.h"
#include "ostrel/config/line_tokens.h"

namespace {

constexpr const WCHAR *kModes[] = {TEXT("r"), TEXT("rb"), TEXT("r, ccs=UTF-8"),
                                   TEXT("r, ccs=UTF-16LE"), TEXT("r, ccs=UNICODE")};

// Cuts each line by each callback: the second one sees what the first has left.
class Cutter : public CINIReader::CIterateEachLineCallback {
public:
    void Begin(int count) override { m_expected = count; }
    void End() override {
        if (m_seen != m_expected) {
            std::abort();
        }
    }
    bool operator()(int index, const WCHAR *line) override {
        if (index != m_seen++ || std::u16string_view(line).size() > 4095) {
            std::abort();
        }
        CLineReaderTokenCallback2 five(line, TEXT(" \t\n;\u3000"));
        Enumerate(five);
        CLineReaderTokenCallbackEx three(line, TEXT(" \t\n"));
        Enumerate(three);
        CLineReaderTokenCallback id(line, TEXT("0 \t\n"));
        Enumerate(id);
        return true;
    }

private:
    int m_expected = 0;
    int m_seen = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const int file = memfd_create("lines", MFD_CLOEXEC);
    if (file < 0 || write(file, data + 1, size - 1) != static_cast<ssize_t>(size - 1)) {
        std::abort();
    }
    const std::string name = "/proc/self/fd/" + std::to_string(file);
    const std::u16string path(name.begin(), name.end());
    {
        CINIReader reader;
        reader.Parse(path.c_str(), kModes[data[0] % std::size(kModes)]);
        Cutter cutter;
        reader.Enumerate(cutter);
        const CIDMapping mapping(path.c_str());
        mapping.GetID(data[0]);
    }
    close(file);
    return 0;
}
