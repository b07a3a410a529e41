#ifndef OSTREL_TEXT_TOKEN_LIST_H
#define OSTREL_TEXT_TOKEN_LIST_H

// Turns a delimited text into a list of tokens and back, for narrow (A) and wide (W) text.
//
//   std::vector<OS::x_wstring> parts;
//   SplitStringToTokensW(&parts, TEXT("a,b;;c"), TEXT(",;"));      // a, b, c
//   OS::x_wstring line;
//   CombineTokensToStringW(parts, &line, TEXT(", "));              // "a, b, c, "
//
// The list is a vector, in the order of the text and with duplicates, or a set in the order of
// XASTRICMP and XWSTRICMP: from the greatest to the smallest, case ignored; of the tokens that
// differ only in case the first one stays, in its own case.
//
// Threads: there is no state. Errors: std::bad_alloc from what grows.

#include <set>
#include <vector>

#include "ostrel/core/api.h"
#include "ostrel/core/x_string.h"

// Empties `tokens` and fills it with the tokens of `text`, which counts up to its first NUL.
//
// `delimiters` is a set of characters (bytes in the narrow form), any of which ends a token. A run
// of them counts as one, and those at the start and at the end yield nothing: no token is empty.
// An empty set leaves the whole text as one token. Tokens are not trimmed.
//
// `text` may be an element of `tokens`, and `delimiters` may lie in one.
//
// Result: true; false, with `tokens` as it was, when `tokens` or `delimiters` is null. When memory
// runs out, the tokens stored by then stay.
OSTREL_API bool SplitStringToTokensA(std::vector<OS::x_astring> *tokens, const OS::x_astring &text,
                                     const char *delimiters);
OSTREL_API bool SplitStringToTokensA(std::set<OS::x_astring, OS::XASTRICMP> *tokens,
                                     const OS::x_astring &text, const char *delimiters);
OSTREL_API bool SplitStringToTokensW(std::vector<OS::x_wstring> *tokens, const OS::x_wstring &text,
                                     const WCHAR *delimiters);
OSTREL_API bool SplitStringToTokensW(std::set<OS::x_wstring, OS::XWSTRICMP> *tokens,
                                     const OS::x_wstring &text, const WCHAR *delimiters);

// Appends to `result` each token, up to its first NUL, and the whole of `delimiter` behind each of
// them, the last one too. What `result` holds before stays in front.
//
// `result` may be an element of `tokens`, which counts with what it held before the call, and
// `delimiter` may lie in `result`.
//
// Result: true; false, with `result` as it was, when `result` or `delimiter` is null. When memory
// runs out, `result` is as it was.
OSTREL_API bool CombineTokensToStringA(const std::vector<OS::x_astring> &tokens,
                                       OS::x_astring *result, const char *delimiter);
OSTREL_API bool CombineTokensToStringA(const std::set<OS::x_astring, OS::XASTRICMP> &tokens,
                                       OS::x_astring *result, const char *delimiter);
OSTREL_API bool CombineTokensToStringW(const std::vector<OS::x_wstring> &tokens,
                                       OS::x_wstring *result, const WCHAR *delimiter);
OSTREL_API bool CombineTokensToStringW(const std::set<OS::x_wstring, OS::XWSTRICMP> &tokens,
                                       OS::x_wstring *result, const WCHAR *delimiter);

#endif  // OSTREL_TEXT_TOKEN_LIST_H
