#pragma once

#include "jobs/Spool.h"

namespace tessaly::tessalyd::films {

/// A new folder of the spool, for a PrintOrder and its images. It goes, with what is in it, unless a job has
/// it. The constructor throws std::system_error.
class NewFolder {
  public:
    explicit NewFolder(const jobs::Spool& spool) : entry_(spool.makeFolder("print")) {}
    ~NewFolder() {
        if (!isKept_)
            jobs::Spool::remove(entry_.path);
    }
    NewFolder(const NewFolder&) = delete;
    NewFolder& operator=(const NewFolder&) = delete;

    [[nodiscard]] const jobs::Spool::Entry& entry() const noexcept { return entry_; }
    void keep() noexcept { isKept_ = true; }

  private:
    jobs::Spool::Entry entry_;
    bool isKept_ = false;
};

}  // namespace tessaly::tessalyd::films
