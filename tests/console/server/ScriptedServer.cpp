#include "tests/console/server/ScriptedServer.h"

#include <stdexcept>

namespace tessaly::test {

using namespace Qt::StringLiterals;

namespace {

class ScriptedServer : public server::Server {
  public:
    explicit ScriptedServer(ServerScript& script) : script_(script) {
        script_.current = this;
        script_.calls << u"create"_s;
    }
    ~ScriptedServer() override {
        script_.current = nullptr;
        script_.calls << u"drop"_s;
    }

    void Start() override {
        meet(u"Start"_s);
        script_.state = 0;
    }
    void Stop() override {
        meet(u"Stop"_s);
        script_.state = 2;
    }
    void Restart() override {
        meet(u"Restart"_s);
        script_.state = 0;
    }
    Status GetStatus() override {
        meet(u"GetStatus"_s);
        return {.state = script_.state, .openAssociations = 5, .portsBound = 2};
    }
    void RegisterService() override {
        meet(u"RegisterService"_s);
        script_.service = !script_.refusesService;
    }
    void UnregisterService() override {
        meet(u"UnregisterService"_s);
        script_.service = false;
    }
    bool IsService() override {
        meet(u"IsService"_s);
        return script_.service;
    }
    void Terminate() override { meet(u"Terminate"_s); }

  private:
    void meet(const QString& operation) {
        script_.calls << operation;
        if (script_.failing.contains(operation))
            throw std::runtime_error("the script fails it");
    }

    ServerScript& script_;
};

}  // namespace

server::ServerFactory ServerScript::factory() {
    return [this]() -> std::unique_ptr<server::Server> {
        if (refusesCreation) {
            calls << u"refuse"_s;
            throw std::runtime_error("the script refuses");
        }
        return std::make_unique<ScriptedServer>(*this);
    };
}

}  // namespace tessaly::test
