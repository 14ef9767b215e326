// The library writes its own lines to the system log. servicetool tells the reasons itself, so it
// keeps the log quiet, or shows the lines to whoever asks for them.
#ifndef TAVO_SERVICETOOL_LIBRARY_LOG_H
#define TAVO_SERVICETOOL_LIBRARY_LOG_H

namespace tavo {

class LibraryLog {
  public:
    // Silences the library for the rest of the program; with `verbose` its lines are shown where a
    // LibraryLog lives. To be called before the library is.
    static void Start(bool verbose);

    // While one of these lives, what the library logs is caught, and at its end printed on standard
    // error, escaped, each line behind "log: ". It has to be caught because syslog(3) itself would
    // copy what files hold to the terminal as it is.
    LibraryLog();
    ~LibraryLog();
    LibraryLog(const LibraryLog &) = delete;
    LibraryLog &operator=(const LibraryLog &) = delete;

  private:
    void PrintCaught() const;

    int caught_ = -1;  // a file in memory that stands in for standard error
    int stderr_ = -1;  // the real one
};

}  // namespace tavo

#endif
