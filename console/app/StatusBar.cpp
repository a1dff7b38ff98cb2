#include "console/app/StatusBar.h"

#include <QIcon>
#include <QLabel>
#include <QStyle>

namespace tessaly {

using namespace Qt::StringLiterals;

namespace {

constexpr int WordWidth = 80;  // the longest word: the panels stay where they are

struct Look {
    QString word;
    QString key;
};

Look lookOf(server::StatusDisplay::State state) {
    using State = server::StatusDisplay::State;
    switch (state) {
        case State::Listening:
            return {u"Listening"_s, u"listening"_s};
        case State::Stopped:
            return {u"Stopped"_s, u"stopped"_s};
        case State::Connected:
            return {u"Connected"_s, u"connected"_s};
        case State::Error:
            break;
    }
    return {u"Error"_s, u"error"_s};
}

/// The icon of that key in the window's list of states.
QIcon imgDcmStatus(const QString& key) {
    return QIcon{u":/icons/"_s + key + u".svg"_s};
}

}  // namespace

StatusBar::StatusBar(QWidget* parent) : QStatusBar(parent) {
    setObjectName(u"stsBar"_s);
    const auto addPanel = [this](const QString& name, int stretch = 0) {
        auto* panel = new QLabel(this);
        panel->setObjectName(name);
        panel->setTextFormat(Qt::PlainText);
        addWidget(panel, stretch);
        return panel;
    };
    stsBarIcon1_ = addPanel(u"stsBarIcon1"_s);
    stsBarText1_ = addPanel(u"stsBarText1"_s);
    stsBarText2_ = addPanel(u"stsBarText2"_s, 1);
    stsBarText1_->setMinimumWidth(WordWidth);
}

void StatusBar::showState(State state) {
    const Look look = lookOf(state);
    stsBarText1_->setText(look.word);
    if (stsBarIcon1_->property("key") == look.key)
        return;  // a burst of events draws its icon once
    stsBarIcon1_->setProperty("key", look.key);
    stsBarIcon1_->setPixmap(imgDcmStatus(look.key).pixmap(style()->pixelMetric(QStyle::PM_SmallIconSize)));
}

void StatusBar::showText(const QString& text) {
    stsBarText2_->setText(text);
}

}  // namespace tessaly
