// Catches the lines that the code under test writes with syslog, so that tests can compare them
// exactly.
//
// A program that uses this interposes syslog, so its lines do not reach the system log.
#ifndef TAVO_TESTS_SUPPORT_CAPTURED_LOG_H
#define TAVO_TESTS_SUPPORT_CAPTURED_LOG_H

#include <string>
#include <vector>

namespace tavo::test {

class CapturedLog {
  public:
    struct Line {
        int priority;
        std::string text;
    };

    // Starts catching with an empty log. Only one CapturedLog may exist at a time.
    CapturedLog();
    ~CapturedLog();
    CapturedLog(const CapturedLog &) = delete;
    CapturedLog &operator=(const CapturedLog &) = delete;

    // Every line, unchanged.
    std::vector<Line> Lines() const;

    // Every line without its "SOURCE:LINE " prefix. If a line ends with the error state, as in
    // "[0x0D00 service_conf_get.cpp:47]", the line number is replaced by N, because it changes with
    // the code. A line without the prefix, or with a priority other than LOG_ERR, starts with a
    // remark that matches no expectation.
    std::vector<std::string> Messages() const;

    void Clear();
};

}  // namespace tavo::test

#endif
