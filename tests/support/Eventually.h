#pragma once

#include <QTest>

namespace tessaly::test {

/// How long anything is waited for that is to come: no more than a bound for what never comes. Some seconds
/// of processor time, as a decoder may have, are more than a minute under a sanitizer with other tests at
/// work.
constexpr int PatienceMs = 180'000;
constexpr int PatienceSeconds = PatienceMs / 1000;

#define EVENTUALLY(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, tessaly::test::PatienceMs)
#define EVENTUALLY2(condition, words) QTRY_VERIFY2_WITH_TIMEOUT(condition, words, tessaly::test::PatienceMs)
#define EVENTUALLY_COMPARE(actual, expected) \
    QTRY_COMPARE_WITH_TIMEOUT(actual, expected, tessaly::test::PatienceMs)

}  // namespace tessaly::test
