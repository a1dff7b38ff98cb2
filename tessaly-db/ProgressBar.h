#pragma once

#include <string>

namespace tessaly::tool {

/// How far a long work has come, in one line of the terminal: on the standard error, so that the standard
/// output is the same without it. Without a terminal there it shows nothing.
class ProgressBar {
  public:
    /// `unit` is what is counted, in the plural.
    ProgressBar(bool shown, std::string unit);
    ~ProgressBar() { clear(); }
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    /// 0 where nobody knows.
    void setWhole(long long count) { whole_ = count; }
    void show(const std::string& what, long long done);
    /// Takes the line away, before something else is printed.
    void clear();

  private:
    bool shown_;
    std::string unit_;
    long long whole_ = 0;
    std::string last_;
};

}  // namespace tessaly::tool
