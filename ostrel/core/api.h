#ifndef OSTREL_CORE_API_H
#define OSTREL_CORE_API_H

// OSTREL_API marks the classes and functions that libostrel exports.

#ifdef _WIN32
#ifdef OSTREL_BUILD
#define OSTREL_API __declspec(dllexport)
#else
#define OSTREL_API __declspec(dllimport)
#endif
#else
#define OSTREL_API __attribute__((visibility("default")))
#endif

#endif  // OSTREL_CORE_API_H
