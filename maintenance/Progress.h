#pragma once

#include <functional>
#include <string>

namespace tessaly::maintenance {

/// What a pass tells and asks while it goes on. The console's forms, the tool's terminal and the tests have
/// one each, which answers what it has an answer to. All is called on the thread that runs the pass.
class Progress {
  public:
    virtual ~Progress() = default;

    /// All that there is to be done, in the pass's own unit. Not called where that is not known.
    virtual void setTotal(long long /*total*/) {}
    /// How much of it is done by now.
    virtual void setDone(long long /*done*/) {}

    /// Something that the pass met and went past, in a sentence.
    virtual void note(const std::string& /*sentence*/) {}
    /// Something that the user is to know before the pass goes on. Returns when he does; false when nobody
    /// will any more, and then it does not happen.
    [[nodiscard]] virtual bool announce(const std::string& /*sentence*/) { return true; }

    /// Asked often, and cheap. A pass that is stopped comes back within a tenth of a second, and what it has
    /// done stays unless it says otherwise.
    [[nodiscard]] virtual bool isStopRequested() { return false; }

    /// Gives up what the pass holds in the database.
    using LetGo = std::function<void()>;
    /// Called every few milliseconds: handles what is pending for the user interface. Where that opens
    /// something that waits for the user, it calls `letGo` first, if there is one: an open walk would keep
    /// the database's log from shrinking for as long as he takes.
    virtual void breathe(const LetGo& letGo) = 0;
    void breathe() { breathe({}); }

  protected:
    Progress() = default;
    Progress(const Progress&) = default;
    Progress& operator=(const Progress&) = default;
};

/// For whoever wants nothing of it but the pass.
class NoProgress : public Progress {
  public:
    using Progress::breathe;
    void breathe(const LetGo& /*letGo*/) override {}
};

}  // namespace tessaly::maintenance
