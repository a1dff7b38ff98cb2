#include "tessalyd/control/Mailbox.h"

#include <utility>

namespace tessaly::tessalyd {

Mailbox::Mailbox() {
    connect(this, &Mailbox::posted, this, &Mailbox::makeNext, Qt::QueuedConnection);
}

void Mailbox::post(Call call) {
    {
        const std::lock_guard lock{mutex_};
        calls_.push_back(std::move(call));
    }
    emit posted();
}

void Mailbox::makeNext() {
    Call call;
    {
        const std::lock_guard lock{mutex_};
        call = std::move(calls_.front());
        calls_.pop_front();
    }
    call();
}

}  // namespace tessaly::tessalyd
