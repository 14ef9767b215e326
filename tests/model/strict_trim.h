// A core library whose TLIBCStrTrimSpace refuses an empty text, as an appliance's own may.
#ifndef TAVO_TESTS_MODEL_STRICT_TRIM_H
#define TAVO_TESTS_MODEL_STRICT_TRIM_H

namespace tavo::test {

// TLIBCStrTrimSpace fails on an empty text for as long as this lives.
class StrictTrim {
  public:
    StrictTrim();
    ~StrictTrim();
    StrictTrim(const StrictTrim &) = delete;
    StrictTrim &operator=(const StrictTrim &) = delete;
};

}  // namespace tavo::test

#endif
