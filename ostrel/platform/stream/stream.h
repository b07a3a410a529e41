#ifndef OSTREL_PLATFORM_STREAM_STREAM_H
#define OSTREL_PLATFORM_STREAM_STREAM_H

// Internal. The object behind a stream of _wfopen: owns the file, translates line ends, decodes.

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

#include "ostrel/platform/file/share_mode.h"
#include "ostrel/platform/stream/text_block.h"
#include "ostrel/platform/text/charset.h"
#include "ostrel/platform/types.h"

namespace ostrel_platform {

// A parsed mode string.
struct OpenMode {
    enum class Encoding { kSystem, kUtf8, kUtf16, kBinary };

    char access = 'r';  // r, w or a
    bool exclusive = false;
    bool find_mark = false;  // a ccs= part was given, so a byte order mark decides the encoding
    Encoding encoding = Encoding::kSystem;

    bool Reads() const { return access == 'r'; }
    bool Binary() const { return encoding == Encoding::kBinary; }

    // Returns nothing when the text is no mode that stream.h describes.
    static std::optional<OpenMode> Parse(std::u16string_view text);
};

// Threads: use a stream on one thread at a time.
class Stream {
public:
    // Opens a file of the host, and truncates none. Throws std::bad_alloc. On failure returns null
    // and sets errno as stream.h describes.
    static std::unique_ptr<Stream> Open(const char *path, const OpenMode &mode);
    Stream &operator=(Stream &&) = delete;  // also disables copies

    bool Reads() const { return m_mode.Reads(); }

    // Truncates the file when the mode says so; call once nothing else can fail. Returns 0 or
    // errno.
    int Truncate();

    // Reads at most `count` - 1 characters, up to and including the next line feed, and stores a
    // NUL behind them. `line` holds `count` characters, at least 1; the call may overwrite all of
    // them. Returns `line`, or null at the end of the file. On failure returns null and sets errno;
    // the beginning of that line is lost.
    WCHAR *ReadLine(WCHAR *line, std::size_t count);

    // Reads bytes for the host's calls, not decoded. In text mode reads CR LF as LF, skips a mark
    // and ends at a Ctrl-Z. Returns the bytes stored, or 0 at the end. On failure returns -1 and
    // sets errno; bytes read before the failure are returned first.
    std::ptrdiff_t ReadBytes(char *bytes, std::size_t capacity);

    // Writes all bytes, in text mode LF as CR LF. Returns 0 or errno. Throws std::bad_alloc.
    int WriteBytes(const char *bytes, std::size_t count);

    // Closes the file; no other call may follow. Returns 0. On failure returns -1 and sets errno.
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
    bool m_ended = false;       // there are no more bytes to read
    int m_error = 0;            // the errno of the failure that ended the stream
    bool m_heldReturn = false;  // the last block, which is empty, ended with a CR; not stored yet

    std::size_t m_bytePos = 0;
    std::size_t m_byteEnd = 0;
    std::optional<StreamDecoder> m_decoder;  // constructed when the encoding is known

    char m_bytes[TextBlock::kBytes];
    TextBlock m_block;
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_STREAM_STREAM_H
