#pragma once

#include <QObject>
#include <deque>
#include <functional>
#include <mutex>

namespace tessaly::tessalyd {

/// Makes calls in the thread that it lives in, from that thread's event loop and in the order in which they
/// were posted. The calls do not travel in Qt's events, whose locks the thread sanitizer cannot see.
class Mailbox : public QObject {
    Q_OBJECT

  public:
    using Call = std::function<void()>;

    Mailbox();

    /// From any thread. A call that has not been made when the mailbox is destroyed is dropped.
    void post(Call call);

  signals:
    void posted();

  private:
    void makeNext();

    std::mutex mutex_;
    std::deque<Call> calls_;
};

}  // namespace tessaly::tessalyd
