// Catches the lines that the code under test writes with syslog, to check them to the letter.
//
// A program that uses this interposes syslog, so its lines go nowhere else.
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

    // Starts catching with an empty log; one CapturedLog at a time.
    CapturedLog();
    ~CapturedLog();
    CapturedLog(const CapturedLog &) = delete;
    CapturedLog &operator=(const CapturedLog &) = delete;

    // Every line as it was written.
    std::vector<Line> Lines() const;

    // Every line without its "SOURCE:LINE " prefix. Where it ends in the error state, as in
    // "[0x0D00 service_conf_get.cpp:47]", the line number there is replaced by N, since it moves
    // with the code. A line that lacks the prefix, or is not of priority LOG_ERR, comes with a
    // remark in front that no expectation matches.
    std::vector<std::string> Messages() const;

    void Clear();
};

}  // namespace tavo::test

#endif
