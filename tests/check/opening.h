// System calls with others in front of them, for the whole program: what no /proc can be made to
// do.
#ifndef TAVO_TESTS_CHECK_OPENING_H
#define TAVO_TESTS_CHECK_OPENING_H

#include <functional>
#include <string>

namespace tavo::test {

// Opening `path` fails with `error` for as long as this lives.
class RefusedOpen {
  public:
    RefusedOpen(std::string path, int error);
    ~RefusedOpen();
    RefusedOpen(const RefusedOpen &) = delete;
    RefusedOpen &operator=(const RefusedOpen &) = delete;
};

// Reading the link `name` of a folder fails with `error` for as long as this lives.
class RefusedLink {
  public:
    RefusedLink(std::string name, int error);
    ~RefusedLink();
    RefusedLink(const RefusedLink &) = delete;
    RefusedLink &operator=(const RefusedLink &) = delete;
};

// Calls `look` behind every opening for as long as this lives.
class BehindOpening {
  public:
    explicit BehindOpening(std::function<void()> look);
    ~BehindOpening();
    BehindOpening(const BehindOpening &) = delete;
    BehindOpening &operator=(const BehindOpening &) = delete;
};

}  // namespace tavo::test

#endif
