// Makes selected allocations fail, to show that running out of memory is a reported result.
//
// A program that uses this interposes malloc, calloc and realloc, so that allocations inside libc
// (strdup, vasprintf, scandir, opendir, ...) fail as well. Only allocations of the calling thread
// while During runs are affected.
#ifndef TAVO_TESTS_SUPPORT_FAILING_ALLOCATION_H
#define TAVO_TESTS_SUPPORT_FAILING_ALLOCATION_H

#include <gtest/gtest.h>

#include <utility>

namespace tavo::test {

class FailingAllocation {
  public:
    enum class Mode {
        kOnlyNth,    // the nth allocation fails, later ones succeed
        kFromNthOn,  // the nth and all later ones fail
    };

    FailingAllocation(int nth, Mode mode) : nth_(nth), mode_(mode) {}
    // The test fails if the nth allocation was not reached and Hit was never called.
    ~FailingAllocation() {
        EXPECT_TRUE(hit_ || asked_) << "allocation " << nth_ << " was not reached";
    }
    FailingAllocation(const FailingAllocation &) = delete;
    FailingAllocation &operator=(const FailingAllocation &) = delete;

    // Runs `call` with the selected allocations failing and returns its result.
    template <typename Call>
    auto During(Call &&call) {
        Armed armed(*this);
        return std::forward<Call>(call)();
    }

    // Whether the last During reached the nth allocation.
    bool Hit() {
        asked_ = true;
        return hit_;
    }

  private:
    class Armed {
      public:
        explicit Armed(FailingAllocation &owner);
        ~Armed();
        Armed(const Armed &) = delete;
        Armed &operator=(const Armed &) = delete;

      private:
        FailingAllocation &owner_;
    };

    int nth_;
    Mode mode_;
    bool hit_ = false;
    bool asked_ = false;
};

// Returns the result of `call`, which must succeed without memory: the test fails if it allocates.
template <typename Call>
auto WithoutMemory(Call &&call) {
    FailingAllocation all(1, FailingAllocation::Mode::kFromNthOn);
    auto result = all.During(std::forward<Call>(call));
    EXPECT_FALSE(all.Hit()) << "the call makes an allocation";
    return result;
}

// Calls run(FailingAllocation &) for the first, second, ... allocation, in both modes, until the
// allocation is not reached. `run` prepares the state, wraps the call under test in During and
// checks the result. The test fails if the call makes no allocation. Returns the number of
// allocations.
template <typename Run>
int ForEachFailingAllocation(Run run) {
    int allocations = 0;
    for (auto mode : {FailingAllocation::Mode::kOnlyNth, FailingAllocation::Mode::kFromNthOn}) {
        for (int nth = 1;; ++nth) {
            FailingAllocation fail(nth, mode);
            run(fail);
            if (!fail.Hit()) {
                break;
            }
            allocations = nth > allocations ? nth : allocations;
        }
    }
    EXPECT_GT(allocations, 0) << "the call makes no allocation";
    return allocations;
}

}  // namespace tavo::test

#endif
