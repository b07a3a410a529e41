#ifndef OSTREL_TEXT_TOKEN_LIST_H
#define OSTREL_TEXT_TOKEN_LIST_H

// Splits a delimited text into a list of tokens and joins a list to a text, for narrow (A) and wide
// (W) text.
//
//   std::vector<OS::x_wstring> parts;
//   SplitStringToTokensW(&parts, TEXT("a,b;;c"), TEXT(",;"));      // a, b, c
//   OS::x_wstring line;
//   CombineTokensToStringW(parts, &line, TEXT(", "));              // "a, b, c, "
//
// A vector holds the tokens in the order of the text, duplicates included. A set holds the tokens
// in the order of XASTRICMP or XWSTRICMP, from the greatest to the smallest, with A-Z taken as a-z.
// Of tokens that differ only in case, a set keeps the first, in its own case.
//
// Threads: the functions keep no state and may run on several threads at once.
// Errors: a null argument makes a function return false. std::bad_alloc when memory is short.

#include <set>
#include <vector>

#include "ostrel/core/api.h"
#include "ostrel/core/x_string.h"

// Replaces the content of `tokens` by the tokens of `text`, which ends at its first NUL.
//
// `delimiters` is a set of characters (bytes in the narrow form), each of which ends a token. No
// token is empty: a run of delimiters separates once, and delimiters at the start and at the end of
// the text yield nothing. With an empty set, the whole text is one token. Tokens are not trimmed.
// `text` may be an element of `tokens`, and `delimiters` may lie in an element.
//
// Returns true, also when the text has no token. Returns false and leaves `tokens` as it was when
// `tokens` or `delimiters` is null. When the call throws, `tokens` is as it was or holds the first
// tokens of the text.
OSTREL_API bool SplitStringToTokensA(std::vector<OS::x_astring> *tokens, const OS::x_astring &text,
                                     const char *delimiters);
OSTREL_API bool SplitStringToTokensA(std::set<OS::x_astring, OS::XASTRICMP> *tokens,
                                     const OS::x_astring &text, const char *delimiters);
OSTREL_API bool SplitStringToTokensW(std::vector<OS::x_wstring> *tokens, const OS::x_wstring &text,
                                     const WCHAR *delimiters);
OSTREL_API bool SplitStringToTokensW(std::set<OS::x_wstring, OS::XWSTRICMP> *tokens,
                                     const OS::x_wstring &text, const WCHAR *delimiters);

// Appends to `result` each token, up to its first NUL, followed by the terminated text `delimiter`.
// The delimiter follows the last token too. The old content of `result` stays in front.
//
// `result` may be an element of `tokens`; the call reads the value from before the call.
// `delimiter` may lie in `result`.
//
// Returns true, also for an empty list. Returns false and leaves `result` as it was when `result`
// or `delimiter` is null. When the call throws, `result` is as it was.
OSTREL_API bool CombineTokensToStringA(const std::vector<OS::x_astring> &tokens,
                                       OS::x_astring *result, const char *delimiter);
OSTREL_API bool CombineTokensToStringA(const std::set<OS::x_astring, OS::XASTRICMP> &tokens,
                                       OS::x_astring *result, const char *delimiter);
OSTREL_API bool CombineTokensToStringW(const std::vector<OS::x_wstring> &tokens,
                                       OS::x_wstring *result, const WCHAR *delimiter);
OSTREL_API bool CombineTokensToStringW(const std::set<OS::x_wstring, OS::XWSTRICMP> &tokens,
                                       OS::x_wstring *result, const WCHAR *delimiter);

#endif  // OSTREL_TEXT_TOKEN_LIST_H
