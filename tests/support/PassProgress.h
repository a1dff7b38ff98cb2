#pragma once

#include <functional>
#include <string>
#include <vector>

#include "maintenance/Progress.h"

namespace tessaly::test {

/// What a pass told, and what it is answered.
class PassProgress : public maintenance::Progress {
  public:
    std::function<void()> breathing = [] {};
    std::function<bool()> stop = [] { return false; };
    std::function<void(long long)> done = [](long long) {};
    std::function<bool()> knows = [] { return true; };
    long long total = 0;
    long long lastDone = 0;
    std::vector<std::string> notes;
    std::vector<std::string> announced;

    void setTotal(long long count) override { total = count; }
    void setDone(long long count) override {
        lastDone = count;
        done(count);
    }
    void note(const std::string& sentence) override { notes.push_back(sentence); }
    [[nodiscard]] bool announce(const std::string& sentence) override {
        announced.push_back(sentence);
        return knows();
    }
    [[nodiscard]] bool isStopRequested() override { return stop(); }
    using Progress::breathe;
    void breathe(const LetGo& /*letGo*/) override { breathing(); }
};

}  // namespace tessaly::test
