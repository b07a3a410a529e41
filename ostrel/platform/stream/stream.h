#ifndef OSTREL_PLATFORM_STREAM_STREAM_H
#define OSTREL_PLATFORM_STREAM_STREAM_H

// Internal. What stands behind a stream of _wfopen: the open file, the line ends and the decoding.

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

#include "ostrel/platform/file/share_mode.h"
#include "ostrel/platform/stream/text_block.h"
#include "ostrel/platform/text/charset.h"
#include "ostrel/platform/types.h"

namespace ostrel_platform {

// A mode string, taken apart.
struct OpenMode {
    enum class Encoding { kSystem, kUtf8, kUtf16, kBinary };

    char access = 'r';  // r, w or a
    bool exclusive = false;
    bool find_mark = false;  // a ccs= part was given: a byte order mark decides
    Encoding encoding = Encoding::kSystem;

    bool Reads() const { return access == 'r'; }
    bool Binary() const { return encoding == Encoding::kBinary; }

    // Nothing when the text is no mode of file.h.
    static std::optional<OpenMode> Parse(std::u16string_view text);
};

class Stream {
public:
    // Opens the file, or gives null with errno.
    static std::unique_ptr<Stream> Open(const char *path, const OpenMode &mode);
    Stream &operator=(Stream &&) = delete;  // nor copied

    bool Reads() const { return m_mode.Reads(); }

    // Reads `count` - 1 characters at most, through the next line feed, and puts a NUL behind them;
    // `count` is not 0. Result: `line`; null at the end, and on an error, with errno, also when the
    // line has begun.
    WCHAR *ReadLine(WCHAR *line, std::size_t count);

    // Bytes as a narrow call of the host wants them. Result: the bytes stored, 0 at the end, -1
    // with errno on an error.
    std::ptrdiff_t ReadBytes(char *bytes, std::size_t capacity);

    // Writes all bytes, LF as CR LF in text mode. Returns 0 or errno. Throws std::bad_alloc.
    int WriteBytes(const char *bytes, std::size_t count);

    // Closes the file. Result: 0, or -1 with errno. Nothing else may follow.
    int Close();

private:
    Stream(SharingFile file, const OpenMode &mode);

    bool FillBytes();
    bool MayBeginMark() const;
    void SkipMark();
    WCHAR *ReadRuns(WCHAR *line, std::size_t capacity);
    bool FillBlock();
    std::size_t DecodeText();
    std::size_t DecodePairs();
    void Stop();

    SharingFile m_file;
    OpenMode m_mode;
    bool m_started = false;     // the first block has been read
    bool m_ended = false;       // the file has no more
    int m_error = 0;            // the errno that ended it
    bool m_heldReturn = false;  // the last block ended with a CR; never while a block has more

    std::size_t m_bytePos = 0;
    std::size_t m_byteEnd = 0;
    std::optional<StreamDecoder> m_decoder;  // made when the encoding is known

    char m_bytes[TextBlock::kBytes];
    TextBlock m_block;
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_STREAM_STREAM_H
