#ifndef OSTREL_CONFIG_CM_INI_READER_H
#define OSTREL_CONFIG_CM_INI_READER_H

// CINIReader loads a text file as a list of lines and passes the lines to a callback.
//
// The reader does not interpret sections, keys or comments. The line callback decides what a line
// means. It usually builds a token callback for the line (see line_tokens.h) and calls Enumerate,
// which splits the line into tokens:
//
//   class Counter : public CINIReader::CIterateEachLineCallback {
//   public:
//       void Begin(int) override {}
//       void End() override {}
//       bool operator()(int, const WCHAR *line) override {
//           CLineReaderTokenCallback fields(line, TEXT(" \t\n"));
//           Enumerate(fields);
//           known += !fields.m_strToken1.IsEmpty();
//           return true;
//       }
//       int known = 0;
//   };
//
//   CINIReader reader;
//   reader.Parse(TEXT("config\\names.txt"), TEXT("r"));
//   Counter counter;
//   reader.Enumerate(counter);
//
// Ownership: a reader owns the stored lines; a copy shares nothing with its source.
// Threads: one thread at a time may use a reader.
// Errors: see Parse. A copy throws std::bad_alloc when memory is short. Exceptions of a callback
// pass through.

#include <vector>

#include "ostrel/core/acc_buffer.h"
#include "ostrel/core/api.h"
#include "ostrel/platform/types.h"

class OSTREL_API CINIReader {
public:
    // A line to split into tokens, and the receiver of the tokens. The object stores the two
    // pointers and copies nothing: line and delimiters must stay valid while the line is split.
    // Build a new object for each line.
    class OSTREL_API CIterateEachTokenCallback {
    public:
        // `line` is terminated text in writable memory, although the pointer is const: Enumerate
        // writes into the text. A string literal, or the text of a const string, is not writable.
        // Enumerate needs a `line` that is not null. `delimiter` is the set of characters that
        // separate tokens. With a null `delimiter` Enumerate finds no token.
        CIterateEachTokenCallback(const WCHAR *line, const WCHAR *delimiter)
            : m_pszLine(line), m_pszDelimiter(delimiter) {}
        CIterateEachTokenCallback(const CIterateEachTokenCallback &) = default;
        CIterateEachTokenCallback &operator=(const CIterateEachTokenCallback &) = default;
        virtual ~CIterateEachTokenCallback() = 0;

        // Returns true when `token` is empty or begins with a character of `commentChars`. Neither
        // may be null.
        virtual bool IsComment(const WCHAR *token, const WCHAR *commentChars) const;
        // Return the pointers that the constructor received.
        virtual const WCHAR *GetLineContent() const;
        virtual const WCHAR *GetDelimiter() const;

        // Receives the token number `index`, which counts from 0. Returns false to end the line.
        virtual bool operator()(int index, const WCHAR *token) = 0;

    protected:
        const WCHAR *m_pszLine;
        const WCHAR *m_pszDelimiter;
    };

    // The receiver of the lines of a reader.
    class OSTREL_API CIterateEachLineCallback {
    public:
        CIterateEachLineCallback() = default;
        CIterateEachLineCallback(const CIterateEachLineCallback &) = default;
        CIterateEachLineCallback &operator=(const CIterateEachLineCallback &) = default;
        virtual ~CIterateEachLineCallback() = 0;

        // Receives the number of lines before the first line.
        virtual void Begin(int lineCount) = 0;

        // Runs after the last line that operator() receives.
        virtual void End() = 0;

        // Receives the stored line number `lineIndex`, which counts from 0. Returns false to end
        // the enumeration.
        virtual bool operator()(int lineIndex, const WCHAR *line) = 0;

        // Splits the line of `tokens` and passes each token to `tokens` until `tokens` returns
        // false. A run of delimiters separates once, and no token is empty. The call changes the
        // line: it writes a NUL over the delimiter after each token, so that a stored line ends
        // with its first token afterwards. The call changes the thread's wcstok position too.
        virtual void Enumerate(CIterateEachTokenCallback &tokens);
    };

    CINIReader();
    CINIReader(const CINIReader &);
    CINIReader &operator=(const CINIReader &);
    ~CINIReader();

    // Adds the lines of a file to the lines that the reader holds. The call passes path and mode to
    // the runtime's _wfopen (see ostrel/platform/file.h and stream.h). The mode "r" reads text in
    // the system code page (UTF-8, unless the locale environment names another), decodes the text
    // to UTF-16 and turns CR LF into a line feed. A byte order mark of UTF-8 is skipped and changes
    // nothing; a UTF-16 file needs the mode "r, ccs=UNICODE". A Ctrl-Z (0x1A) ends the text.
    //
    // A callback of Enumerate must not call Parse on the reader that calls it: Parse moves the
    // lines. The callback may use another reader.
    //
    // A line is stored with its line feed; the last line of the file may have none. A line of more
    // than 4095 characters (UTF-16 units, the line feed included) is stored in pieces of 4095, each
    // as a line of its own. Characters after a NUL in a line or piece are dropped.
    //
    // Returns true, always. A read error, or a mode that does not read, is not reported: the stored
    // lines end there. Memory missing for the decoder counts as a read error: Parse returns true
    // without the lines.
    //
    // On failure throws, and the lines read before stay:
    //   OS::CSystemException  with the errno of _wfopen when the file cannot be opened: EINVAL for
    //                         a null or empty path and for a null or unknown mode, EACCES for what
    //                         is no regular file (Parse never waits for a FIFO or device), ENOMEM
    //                         if _wfopen lacks the memory
    //   OS::CSystemException  with EFBIG when more than 4,194,304 characters follow each other
    //                         without a line feed; the pieces up to there stay
    //   std::length_error     the stored text would need more than 4,294,967,295 bytes (about 2 G
    //                         characters)
    //   std::bad_alloc        other memory is short
    // The last two can also come after the last line, because the call allocates before each read.
    //
    // At the end, Parse writes out the buffers of the output streams that _flushall serves (see
    // stream.h). Parse does not wait for a thread that reads standard input.
    bool Parse(const WCHAR *pszFile, const WCHAR *pszMode);

    // Calls Begin of `callback` with the number of lines, then `callback` with each line until it
    // returns false, then End, also after false. The callback receives the stored text itself: the
    // pointer is valid until the next Parse, and a change through the pointer stays. When the
    // callback throws, the exception passes through and End is not called.
    void Enumerate(CIterateEachLineCallback &callback);

private:
    std::vector<int> m_lineOffsets;  // in characters from the start of m_text
    CAccBuffer m_text;               // the lines, each with its NUL
};

#endif  // OSTREL_CONFIG_CM_INI_READER_H
