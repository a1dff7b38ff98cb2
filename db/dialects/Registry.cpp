#include "db/dialects/Registry.h"

#include <algorithm>
#include <array>
#include <list>
#include <memory>
#include <mutex>
#include <tuple>

namespace tessaly::db {

// One line for each engine: the function of its file that makes its dialect.
[[nodiscard]] std::unique_ptr<Dialect> sqliteDialect(Naming naming);
[[nodiscard]] std::unique_ptr<Dialect> postgresDialect(Naming naming);

namespace {

constexpr std::array Makers{sqliteDialect, postgresDialect};

/// An engine that only the standard is known of.
class OtherDialect final : public Dialect {
  public:
    OtherDialect(std::string_view engineName, Naming naming)
        : Dialect(std::move(naming)), engineName_(engineName) {}

    [[nodiscard]] std::string_view engineName() const override { return engineName_; }
    [[nodiscard]] bool isDriver(std::string_view /*library*/) const override { return false; }
    [[nodiscard]] std::string connectWords(Purpose /*purpose*/) const override { return {}; }
    [[nodiscard]] std::string currentSeconds() const override { return {}; }

  private:
    std::string engineName_;
};

using Dialects = std::array<std::unique_ptr<Dialect>, Makers.size()>;

Dialects makeAll() {
    Dialects made;
    std::transform(Makers.begin(), Makers.end(), made.begin(), [](auto* make) { return make({}); });
    return made;
}

/// Never destroyed: connections of static life are closed after they would be.
const Dialects& all() {
    static const Dialects& dialects = *std::make_unique<Dialects>(makeAll()).release();
    return dialects;
}

std::unique_ptr<Dialect> make(std::string_view engineName, const Naming& naming) {
    for (std::size_t i = 0; i < Makers.size(); ++i)
        if (all()[i]->engineName() == engineName)
            return Makers[i](naming);
    return std::make_unique<OtherDialect>(engineName, naming);
}

}  // namespace

const Dialect& dialectOf(std::string_view engineName, const Naming& naming) {
    struct Made {
        std::string engineName;
        Naming naming;
        std::unique_ptr<Dialect> dialect;
    };
    struct Known {
        std::mutex mutex;
        std::list<Made> all;
    };
    static Known& known = *std::make_unique<Known>().release();
    const std::lock_guard lock{known.mutex};
    const auto found = std::find_if(known.all.begin(), known.all.end(), [&](const Made& made) {
        return std::tie(made.engineName, made.naming.quote, made.naming.folding) ==
               std::tuple{engineName, naming.quote, naming.folding};
    });
    if (found != known.all.end())
        return *found->dialect;
    known.all.push_back({std::string{engineName}, naming, make(engineName, naming)});
    return *known.all.back().dialect;
}

const Dialect& dialectOfDriver(std::string_view library) {
    for (const auto& dialect : all())
        if (dialect->isDriver(library))
            return *dialect;
    return dialectOf({}, {});
}

std::string connectWords(Purpose purpose, std::chrono::milliseconds lockWait) {
    std::string words;
    const auto add = [&words](const std::string& more) {
        if (!more.empty())
            words.append(";").append(more);
    };
    for (const auto& dialect : all()) {
        add(dialect->connectWords(purpose));
        if (lockWait > std::chrono::milliseconds::zero())
            add(dialect->lockWaitWords(lockWait));
    }
    return words;
}

void expectConnection() {
    for (const auto& dialect : all())
        dialect->expectConnection();
}

FaultKind kindOfConnectFault(std::span<const Diagnostic> records) {
    auto kind = FaultKind::Other;
    for (const auto& dialect : all())
        kind = std::max(kind, dialect->kindOf(records));
    return kind;
}

}  // namespace tessaly::db
