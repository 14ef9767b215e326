// Functions with others in front of them, for the whole program: they make single steps fail, look
// at what is there while a step is made, and keep a record of the programs that are run. Where no
// test asks, the real ones answer.
//
// A test fails when what it asks for is never reached, and ends when no stand-in has the name that
// it gives. There is one object of each class at a time.
#ifndef TAVO_TESTS_SUPPORT_STAND_INS_H
#define TAVO_TESTS_SUPPORT_STAND_INS_H

#include <functional>
#include <string>
#include <vector>

namespace tavo::test {

// The function of that name fails for as long as this lives; stand_ins.cpp lists those that can.
class Failing {
  public:
    // With `about` only those calls fail that are about this key or file. System calls set `error`.
    explicit Failing(std::string function, std::string about = "", int error = 0);
    // Calls fail from the nth on.
    Failing(std::string function, int nth);
    ~Failing();
    Failing(const Failing &) = delete;
    Failing &operator=(const Failing &) = delete;

    // From now on only the first call fails.
    Failing &Once();

    // From now on the check of a service file's ports gives this in place of -1.
    Failing &Giving(int result);
};

// Calls `look` before each call of that function for as long as this lives.
class Before {
  public:
    Before(std::string function, std::function<void()> look);
    ~Before();
    Before(const Before &) = delete;
    Before &operator=(const Before &) = delete;
};

// Calls `look` after each opening of a file for as long as this lives.
class AfterOpening {
  public:
    explicit AfterOpening(std::function<void()> look);
    ~AfterOpening();
    AfterOpening(const AfterOpening &) = delete;
    AfterOpening &operator=(const AfterOpening &) = delete;
};

// Each look at the clock finds it an hour later for as long as this lives, so that waits with a
// limit are over at once.
class FastClock {
  public:
    FastClock();
    ~FastClock();
    FastClock(const FastClock &) = delete;
    FastClock &operator=(const FastClock &) = delete;
};

// A read gives one byte at most for as long as this lives.
class ShortReads {
  public:
    ShortReads();
    ~ShortReads();
    ShortReads(const ShortReads &) = delete;
    ShortReads &operator=(const ShortReads &) = delete;
};

// The files that are opened for as long as this lives.
class Openings {
  public:
    Openings();
    ~Openings();
    Openings(const Openings &) = delete;
    Openings &operator=(const Openings &) = delete;

    // Those that were opened with all these flags, in order.
    std::vector<std::string> With(int flags) const;
};

// The programs that are run for as long as this lives.
class Programs {
  public:
    Programs();
    ~Programs();
    Programs(const Programs &) = delete;
    Programs &operator=(const Programs &) = delete;

    // Each with its arguments, in order: "/bin/cp -f FILE COPY".
    std::vector<std::string> Run() const;

    // The options that came with each; 0 where the call has none.
    std::vector<int> Options() const;

    // Calls `look` before each start of `program`.
    void Before(const std::string &program, std::function<void()> look);

    // Gives `result` in place of running `program`, with `error` left in errno.
    void Answer(const std::string &program, int result, int error = 0);
};

}  // namespace tavo::test

#endif
