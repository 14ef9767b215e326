// Stand-ins for functions, for the whole program. They make single steps fail, run a function of
// the test while a step is made, and record the programs that are run. Without such a request they
// call the real functions.
//
// A test fails if a requested step is never reached. The program ends if no stand-in has the
// requested name. Only one object of each class may exist at a time.
#ifndef TAVO_TESTS_SUPPORT_STAND_INS_H
#define TAVO_TESTS_SUPPORT_STAND_INS_H

#include <functional>
#include <string>
#include <vector>

namespace tavo::test {

// The named function fails for the lifetime of the object. stand_ins.cpp lists the functions that
// can fail.
class Failing {
  public:
    // With `about`, only calls about this key or file fail. System calls set errno to `error`.
    explicit Failing(std::string function, std::string about = "", int error = 0);
    // Calls fail starting with the nth.
    Failing(std::string function, int nth);
    ~Failing();
    Failing(const Failing &) = delete;
    Failing &operator=(const Failing &) = delete;

    // Only the first of these calls fails.
    Failing &Once();

    // The check of a service file's ports returns this instead of -1.
    Failing &Giving(int result);
};

// Calls `look` before each call of the named function, for the lifetime of the object.
class Before {
  public:
    Before(std::string function, std::function<void()> look);
    ~Before();
    Before(const Before &) = delete;
    Before &operator=(const Before &) = delete;
};

// Calls `look` after each opening of a file, for the lifetime of the object.
class AfterOpening {
  public:
    explicit AfterOpening(std::function<void()> look);
    ~AfterOpening();
    AfterOpening(const AfterOpening &) = delete;
    AfterOpening &operator=(const AfterOpening &) = delete;
};

// Each reading of the clock is an hour later than the last, for the lifetime of the object, so that
// waits with a time limit end at once.
class FastClock {
  public:
    FastClock();
    ~FastClock();
    FastClock(const FastClock &) = delete;
    FastClock &operator=(const FastClock &) = delete;
};

// Reads return at most one byte, for the lifetime of the object.
class ShortReads {
  public:
    ShortReads();
    ~ShortReads();
    ShortReads(const ShortReads &) = delete;
    ShortReads &operator=(const ShortReads &) = delete;
};

// Records the files that are opened during the lifetime of the object.
class Openings {
  public:
    Openings();
    ~Openings();
    Openings(const Openings &) = delete;
    Openings &operator=(const Openings &) = delete;

    // The files opened with all these flags, in order.
    std::vector<std::string> With(int flags) const;
};

// Records the programs that are run during the lifetime of the object.
class Programs {
  public:
    Programs();
    ~Programs();
    Programs(const Programs &) = delete;
    Programs &operator=(const Programs &) = delete;

    // Each program with its arguments, in order: "/bin/cp -f FILE COPY".
    std::vector<std::string> Run() const;

    // The options of each call; 0 if the call has none.
    std::vector<int> Options() const;

    // Calls `look` before each start of `program`.
    void Before(const std::string &program, std::function<void()> look);

    // Returns `result` instead of running `program`, and sets errno to `error`.
    void Answer(const std::string &program, int result, int error = 0);
};

}  // namespace tavo::test

#endif
