#include "tests/tessalyd/Processes.h"

#include <QDir>
#include <QFile>

using namespace Qt::StringLiterals;

namespace tessaly::test {

namespace {

QByteArrayList linesOf(qint64 process, const QString& name) {
    QFile file{u"/proc/%1/%2"_s.arg(process).arg(name)};
    return file.open(QIODevice::ReadOnly) ? file.readAll().split('\n') : QByteArrayList{};
}

}  // namespace

QList<int> childrenOf(qint64 process) {
    QList<int> children;
    const QDir threads{u"/proc/%1/task"_s.arg(process)};
    for (const QString& thread : threads.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        for (const QByteArray& child :
             linesOf(process, u"task/%1/children"_s.arg(thread)).value(0).split(' ')) {
            if (!child.isEmpty())
                children << child.toInt();
        }
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

QString limitOf(qint64 process, const char* name) {
    constexpr qsizetype Name = 26;  // the width of its column
    for (const QByteArray& line : linesOf(process, u"limits"_s)) {
        if (line.startsWith(name))
            return QString::fromLatin1(line.mid(Name).simplified().split(' ').value(1));
    }
    return {};
}

bool hasEnded(qint64 process) {
    const QString state = statusOf(process, "State");
    return state.isEmpty() || state.startsWith(u'Z');
}

}  // namespace tessaly::test
