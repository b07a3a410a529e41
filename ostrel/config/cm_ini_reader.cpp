#include "ostrel/config/cm_ini_reader.h"

#include <cerrno>
#include <memory>

#include "ostrel/core/trace.h"
#include "ostrel/platform/crt_text.h"
#include "ostrel/platform/stream.h"

namespace {

// The capacity for one piece of a line, in characters with the NUL.
constexpr int kReadCharacters = 4096;

// The most characters that may follow each other without a line feed.
constexpr std::size_t kMaxLine = std::size_t{4} << 20;

struct CloseFile {
    void operator()(std::FILE *file) const { std::fclose(file); }
};

}  // namespace

CINIReader::CIterateEachTokenCallback::~CIterateEachTokenCallback() = default;

bool CINIReader::CIterateEachTokenCallback::IsComment(const WCHAR *token,
                                                      const WCHAR *commentChars) const {
    return wcscspn(token, commentChars) == 0;
}

const WCHAR *CINIReader::CIterateEachTokenCallback::GetLineContent() const {
    return m_pszLine;
}

const WCHAR *CINIReader::CIterateEachTokenCallback::GetDelimiter() const {
    return m_pszDelimiter;
}

CINIReader::CIterateEachLineCallback::~CIterateEachLineCallback() = default;

void CINIReader::CIterateEachLineCallback::Enumerate(CIterateEachTokenCallback &tokens) {
    auto *const line = const_cast<WCHAR *>(tokens.GetLineContent());
    const WCHAR *const delimiters = tokens.GetDelimiter();
    const WCHAR *const end = line + wcslen(line);

    WCHAR *token = wcstok(line, delimiters);
    for (int counter = 0; token != nullptr && token < end; ++counter) {
        OSTREL_TRACE(DBG::kLevelValue, TEXT("Token = %s, Counter = %d"), token, counter);
        if (!tokens(counter, token)) {
            break;
        }
        WCHAR *const next = token + wcslen(token) + 1;
        token = next < end ? wcstok(next, delimiters) : nullptr;
    }
}

CINIReader::CINIReader() = default;
CINIReader::CINIReader(const CINIReader &) = default;
CINIReader &CINIReader::operator=(const CINIReader &source) {
    std::vector<int> offsets(source.m_lineOffsets);
    m_text = source.m_text;  // leaves m_text unchanged when it throws
    m_lineOffsets.swap(offsets);
    return *this;
}
CINIReader::~CINIReader() = default;

bool CINIReader::Parse(const WCHAR *pszFile, const WCHAR *pszMode) {
    OSTREL_TRACE(DBG::kLevelEntry, TEXT("CINIReader::Parse(pszFile = %s)"), pszFile);
    std::unique_ptr<std::FILE, CloseFile> file(_wfopen(pszFile, pszMode));
    if (file == nullptr) {
        OSTREL_RAISE_SYSTEM(errno);
    }

    for (std::size_t line_length = 0;;) {
        // fgetws reads each piece directly to its final place.
        constexpr std::uint32_t kReadBytes = kReadCharacters * sizeof(WCHAR);
        unsigned char *const buffer = m_text.Prepare(kReadBytes);
        __builtin_prefetch(buffer + 2048,
                           1);  // the place of later lines
        auto *const piece = reinterpret_cast<WCHAR *>(buffer);
        if (fgetws(piece, kReadCharacters, file.get()) == nullptr) {
            break;
        }
        const std::size_t length = wcslen(piece);
        const bool ends_line = length > 0 && piece[length - 1] == u'\n';
        line_length += length;
        if (line_length - (ends_line ? 1 : 0) > kMaxLine) {
            OSTREL_RAISE_SYSTEM(EFBIG);
        }
        m_lineOffsets.push_back(static_cast<int>(m_text.BytesUsed() / sizeof(WCHAR)));
        m_text.Commit(static_cast<std::uint32_t>((length + 1) * sizeof(WCHAR)));
        line_length = ends_line ? 0 : line_length;
    }
    file.reset();

    const int streams = _flushall();
    OSTREL_TRACE(DBG::kLevelValue, TEXT("There were %d streams flushed"), streams);
    OSTREL_TRACE(DBG::kLevelExit, TEXT("CINIReader::Parse(pszFile = %s), [REUTRN=%d]"), pszFile, 1);
    return true;
}

void CINIReader::Enumerate(CIterateEachLineCallback &callback) {
    OSTREL_TRACE(DBG::kLevelEntry, "CINIReader::Enumerate()");
    callback.Begin(static_cast<int>(m_lineOffsets.size()));
    const auto *const start = reinterpret_cast<const WCHAR *>(m_text.GetBuffer());
    int index = 0;
    for (const int offset : m_lineOffsets) {
        if (!callback(index, start + offset)) {
            break;
        }
        ++index;
    }
    callback.End();
    OSTREL_TRACE(DBG::kLevelExit, "CINIReader::Enumerate()");
}
