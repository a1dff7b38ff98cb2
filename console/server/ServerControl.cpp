#include "console/server/ServerControl.h"

#include <QCheckBox>
#include <QPushButton>

#include "console/server/ServerFrame.h"
#include "console/ui/Guard.h"

namespace tessaly::server {

using namespace Qt::StringLiterals;

namespace {

constexpr int CheckInterval = 1000;  // ms

// State codes of the server; it may have others, which are shown nowhere.
constexpr int Listening = 0;
constexpr int Stopped = 2;

}  // namespace

ServerControl::ServerControl(ServerFactory factory, ServerFrame& frame, StatusDisplay& display)
    : factory_(std::move(factory)),
      frame_(frame),
      display_(display),
      monitor_(frame.lstStatus(), display),
      timerCheckConnections_(new QTimer(&frame)) {
    const auto onClick = [this](const QAbstractButton& button, auto body) {
        connect(&button, &QAbstractButton::clicked, this, ui::handler(body));
    };
    onClick(frame_.cmdStart(), [this] { command(&Server::Start); });
    onClick(frame_.cmdStop(), [this] { command(&Server::Stop); });
    onClick(frame_.cmdRestart(), [this] { command(&Server::Restart); });
    onClick(frame_.cmdLoad(), [this] { cmdLoad_Click(); });
    onClick(frame_.chkService(), [this] { chkService_MouseUp(); });

    timerCheckConnections_->setObjectName(u"timerCheckConnections"_s);
    timerCheckConnections_->setInterval(CheckInterval);
    connect(timerCheckConnections_, &QTimer::timeout, this,
            ui::handler([this] { timerCheckConnections_Timer(); }));
    timerCheckConnections_->start();
}

ServerControl::~ServerControl() = default;

void ServerControl::createServer() {
    server_ = factory_();
    monitor_.follow(*server_);
}

void ServerControl::RefreshServerState() {
    try {
        if (!server_) {
            createServer();
            ShowLoadState();
        }
        showState(server_->GetStatus().state);
    } catch (const std::exception&) {
        dropServer();
        showError();
        ShowLoadState();
    }
}

void ServerControl::showState(int code) {
    if (code != Listening && code != Stopped)
        return;
    const bool listening = code == Listening;
    display_.showState(listening ? StatusDisplay::State::Listening : StatusDisplay::State::Stopped);
    display_.showText({});
    frame_.cmdStart().setEnabled(!listening);
    frame_.cmdStop().setEnabled(listening);
    frame_.cmdRestart().setEnabled(listening);
}

void ServerControl::showError() {
    display_.showState(StatusDisplay::State::Error);
    for (QPushButton* button : {&frame_.cmdStart(), &frame_.cmdStop(), &frame_.cmdRestart()})
        button->setEnabled(false);
}

void ServerControl::ShowLoadState() {
    const bool loaded = server_ != nullptr;
    frame_.cmdLoad().setText(loaded ? u"Terminate"_s : u"Run"_s);
    frame_.cmdLoad().setToolTip(loaded ? u"Terminate server"_s : u"Load server"_s);
    frame_.chkService().setEnabled(loaded);
}

void ServerControl::showService() {
    ShowLoadState();
    if (server_)
        ui::ignoringErrors([this] { frame_.chkService().setChecked(server_->IsService()); });
}

void ServerControl::setTimerEnabled(bool enabled) {
    if (enabled)
        timerCheckConnections_->start();
    else
        timerCheckConnections_->stop();
}

void ServerControl::timerCheckConnections_Timer() {
    RefreshServerState();
    // A look that had to wait for the server leaves the window a whole interval before the next one.
    timerCheckConnections_->start();
}

void ServerControl::call(void (Server::*operation)()) {
    if (server_)
        (*server_.*operation)();
}

void ServerControl::command(void (Server::*operation)()) {
    ui::ignoringErrors([&] { call(operation); });
    RefreshServerState();
}

void ServerControl::cmdLoad_Click() {
    // Without a Server object the refresh makes one: tried here and there, a server that cannot be had would
    // be waited for twice.
    ui::ignoringErrors([this] { call(&Server::Terminate); });
    dropServer();
    RefreshServerState();
    ShowLoadState();
}

void ServerControl::chkService_MouseUp() {
    QCheckBox& box = frame_.chkService();
    if (!server_) {
        box.setEnabled(false);
        return;
    }
    // After No the box stays as the click left it.
    if (ui::messageBox(&frame_, u"The service will be stopped: do you want to proceed?"_s,
                       ui::BoxStyle::YesNo) != ui::Answer::Yes)
        return;
    box.setEnabled(true);
    const bool wanted = box.isChecked();
    bool registered = false;
    ui::ignoringErrors([&] { call(wanted ? &Server::RegisterService : &Server::UnregisterService); });
    // The timer may have lost the server while the question stood.
    ui::ignoringErrors([&] { registered = wanted && server_ && server_->IsService(); });
    if (wanted && !registered) {
        ui::messageBox(&frame_, u"Impossible to register service"_s);
        box.setChecked(false);
    }
    dropServer();
}

}  // namespace tessaly::server
