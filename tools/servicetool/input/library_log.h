// The library writes its own lines to the system log. servicetool tells the reasons itself, so it
// keeps the log quiet, or shows the lines to whoever asks for them.
#ifndef TAVO_SERVICETOOL_INPUT_LIBRARY_LOG_H
#define TAVO_SERVICETOOL_INPUT_LIBRARY_LOG_H

#include <string>
#include <vector>

namespace tavo::tool {

struct LoggedLine {
    std::string text;         // without SOURCE:LINE and error state
    bool of_library = false;  // or else of a program that it ran
};

class LibraryLog {
  public:
    // Silences the library for the rest of the program; with `verbose` its lines are shown where a
    // LibraryLog lives. To be called before the library is.
    static void Start(bool verbose);

    // While one of these lives, what the library logs is caught, and at its end printed on standard
    // error, escaped, each line behind "log: ". It has to be caught because syslog(3) itself would
    // copy what files hold to the terminal as it is.
    LibraryLog() : LibraryLog(false) {}
    ~LibraryLog() { End(); }
    LibraryLog(const LibraryLog &) = delete;
    LibraryLog &operator=(const LibraryLog &) = delete;

    // The lines so far. Nothing is caught behind it.
    std::vector<LoggedLine> End();

  protected:
    // `change`: whether the library changes something, see ChangeLog.
    explicit LibraryLog(bool change);

  private:
    void Catch(int descriptor, int &real);
    void Release(int descriptor, int &real);

    int caught_ = -1;  // a file in memory that stands in for standard error
    int stderr_ = -1;  // the real one
    int stdout_ = -1;  // the real one, where it is caught, too
};

// The same for calls that change something. What they log is wanted whether it is shown or not, for
// much of what goes wrong is said there only; and the programs that they run, which write to our
// standard output and error, are caught likewise.
class ChangeLog : public LibraryLog {
  public:
    ChangeLog() : LibraryLog(true) {}
};

}  // namespace tavo::tool

#endif
