// A core library with a TLIBCStrTrimSpace that rejects empty texts, as that of an appliance may.
#ifndef TAVO_TESTS_MODEL_STRICT_TRIM_H
#define TAVO_TESTS_MODEL_STRICT_TRIM_H

namespace tavo::test {

// TLIBCStrTrimSpace fails for empty texts during the lifetime of the object.
class StrictTrim {
  public:
    StrictTrim();
    ~StrictTrim();
    StrictTrim(const StrictTrim &) = delete;
    StrictTrim &operator=(const StrictTrim &) = delete;
};

}  // namespace tavo::test

#endif
