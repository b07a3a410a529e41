#ifndef TESTS_SUPPORT_TEST_H
#define TESTS_SUPPORT_TEST_H

// What nearly every test includes.

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

// For the messages of a table: the input of a row, UTF-16 too.
using testing::PrintToString;

#endif  // TESTS_SUPPORT_TEST_H
