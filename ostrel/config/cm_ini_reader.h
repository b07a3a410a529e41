#ifndef OSTREL_CONFIG_CM_INI_READER_H
#define OSTREL_CONFIG_CM_INI_READER_H

// CINIReader: loads a text file as a list of lines and walks the lines through a callback.
//
// The reader knows nothing of sections, keys or comments. What a line means is decided by the
// callback, which as a rule builds a token callback on the line (see line_tokens.h) and has
// Enumerate cut it:
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
// Threads: a reader belongs to one thread at a time.

#include <vector>

#include "ostrel/core/acc_buffer.h"
#include "ostrel/core/api.h"
#include "ostrel/platform/types.h"

class OSTREL_API CINIReader {
public:
    // One line to be cut into tokens, and what receives them. It keeps the two pointers, which must
    // stay valid while the line is cut, and copies nothing. It serves one line: build a new one for
    // the next.
    class OSTREL_API CIterateEachTokenCallback {
    public:
        // `delimiter` is the set of characters that separate tokens.
        CIterateEachTokenCallback(const WCHAR *line, const WCHAR *delimiter)
            : m_pszLine(line), m_pszDelimiter(delimiter) {}
        CIterateEachTokenCallback(const CIterateEachTokenCallback &) = default;
        CIterateEachTokenCallback &operator=(const CIterateEachTokenCallback &) = default;
        virtual ~CIterateEachTokenCallback() = 0;

        // Whether `token` begins with one of `commentChars`, or is empty.
        virtual bool IsComment(const WCHAR *token, const WCHAR *commentChars) const;
        virtual const WCHAR *GetLineContent() const;
        virtual const WCHAR *GetDelimiter() const;

        // Receives the token number `index`, from 0 on. False ends the line.
        virtual bool operator()(int index, const WCHAR *token) = 0;

    protected:
        const WCHAR *m_pszLine;
        const WCHAR *m_pszDelimiter;
    };

    // Receives the lines of a reader.
    class OSTREL_API CIterateEachLineCallback {
    public:
        CIterateEachLineCallback() = default;
        CIterateEachLineCallback(const CIterateEachLineCallback &) = default;
        CIterateEachLineCallback &operator=(const CIterateEachLineCallback &) = default;
        virtual ~CIterateEachLineCallback() = 0;

        virtual void Begin(int lineCount) = 0;
        virtual void End() = 0;

        // Receives the line number `lineIndex`, from 0 on, as it is stored. False ends the walk.
        virtual bool operator()(int lineIndex, const WCHAR *line) = 0;

        // Cuts the line of `tokens` and calls it with each token, until it gives false. A run of
        // delimiters separates once, and there are no empty tokens. The line is changed: a NUL is
        // written behind each token, so that a stored line ends with its first token afterwards.
        // An exception of `tokens` passes through.
        virtual void Enumerate(CIterateEachTokenCallback &tokens);
    };

    // A copy shares nothing with its source.
    CINIReader();
    CINIReader(const CINIReader &);
    CINIReader &operator=(const CINIReader &);
    ~CINIReader();

    // Adds the lines of a file to those that the reader holds. Path and mode go to the runtime's
    // _wfopen as they are (see ostrel/platform/file.h); "r" reads text, decoded to UTF-16, with one
    // line feed at the end of a line.
    //
    // A line is stored with its line feed; the last one may have none. A line of more than 4095
    // characters is stored in pieces of 4095, as lines of their own. What follows a NUL in a line
    // (or piece) is dropped.
    //
    // Result: true. A read error ends the file where it happens.
    // Errors: OS::CSystemException with the errno when the file cannot be opened. An exception of
    // the containers (std::bad_alloc; std::length_error near 2 G characters) leaves the lines read
    // so far. It may come behind the last line, too: memory is made sure of before each read.
    bool Parse(const WCHAR *pszFile, const WCHAR *pszMode);

    // Calls `callback`: Begin with the number of lines, then with each line until it gives false,
    // then End. The line is the stored text itself: it is valid until the next Parse, and what is
    // written through it stays. An exception of the callback passes through, and End is not called.
    void Enumerate(CIterateEachLineCallback &callback);

private:
    std::vector<int> m_lineOffsets;  // in characters from the start of m_text
    CAccBuffer m_text;               // the lines, each with a NUL behind it
};

#endif  // OSTREL_CONFIG_CM_INI_READER_H
