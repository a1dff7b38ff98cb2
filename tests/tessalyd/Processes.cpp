#include "tests/tessalyd/Processes.h"

#include <QDir>
#include <QFile>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace tessaly::test {

namespace {

QByteArrayList linesOf(qint64 process, const QString& name) {
    QFile file{u"/proc/%1/%2"_s.arg(process).arg(name)};
    return file.open(QIODevice::ReadOnly) ? file.readAll().split('\n') : QByteArrayList{};
}

}  // namespace

/// By what the children say: the lists of the parent's threads change while one reads them, as threads end.
QList<int> childrenOf(qint64 process) {
    const QString parent = QString::number(process);
    QList<int> children;
    for (const QString& name : QDir{u"/proc"_s}.entryList({u"[0-9]*"_s}, QDir::Dirs)) {
        if (statusOf(name.toLongLong(), "PPid") == parent)
            children << name.toInt();
    }
    return children;
}

QString statusOf(qint64 process, const char* field) {
    for (const QByteArray& line : linesOf(process, u"status"_s)) {
        if (line.startsWith(field))
            return QString::fromLatin1(line.mid(line.indexOf(':') + 1).trimmed());
    }
    return {};
}

long long peakMemoryOf(qint64 process) {
    bool isNumber = false;
    const long long peak = statusOf(process, "VmHWM").section(u' ', 0, 0).toLongLong(&isNumber);
    if (!isNumber)
        throw std::runtime_error("the process is gone");
    return peak;
}

QString limitOf(qint64 process, const char* name) {
    constexpr qsizetype Name = 26;  // the width of its column
    for (const QByteArray& line : linesOf(process, u"limits"_s)) {
        if (line.startsWith(name))
            return QString::fromLatin1(line.mid(Name).simplified().split(' ').value(1));
    }
    return {};
}

int killsWanted(int usual) {
    const int wanted = qEnvironmentVariableIntValue("TESSALY_TEST_KILLS");
    return wanted > 0 ? wanted : usual;
}

bool hasEnded(qint64 process) {
    const QString state = statusOf(process, "State");
    return state.isEmpty() || state.startsWith(u'Z');
}

}  // namespace tessaly::test
