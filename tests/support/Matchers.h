// The test framework, and its matchers by their own names.
#ifndef VINTOK_TESTS_SUPPORT_MATCHERS_H
#define VINTOK_TESTS_SUPPORT_MATCHERS_H

#include <gmock/gmock.h>

namespace vintok::test {

using testing::ElementsAre, testing::HasSubstr, testing::IsEmpty, testing::Not, testing::StartsWith;

} // namespace vintok::test

#endif
