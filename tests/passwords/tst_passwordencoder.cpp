#include <sys/resource.h>
#include <unistd.h>

#include <QFile>
#include <QTest>
#include <stdexcept>

#include "passwords/PasswordEncoder.h"

using namespace Qt::StringLiterals;

namespace {

class TestPasswordEncoder : public QObject {
    Q_OBJECT
  private slots:
    void givesTheFormThatIsStored_data();
    void givesTheFormThatIsStored();
    void keepsPasswordsApart();
    void takesAPasswordOfAnyLength();
    void throwsWhenMemoryFails();
};

std::string encode(const QString& password) {
    return tessaly::PasswordEncoder{}.encode(password.toStdString());
}

}  // namespace

// The forms come from the reference implementation of Argon2 (-id -t 2 -k 65536 -p 1 -l 16), cut to 12 bytes.
// Were one of them to change, every password that is stored anywhere would be lost.
void TestPasswordEncoder::givesTheFormThatIsStored_data() {
    QTest::addColumn<QString>("password");
    QTest::addColumn<QByteArray>("form");
    QTest::newRow("plain") << u"secret"_s << QByteArray("KrmS5YczN69Iw9f4");
    QTest::newRow("case matters") << u"Secret"_s << QByteArray("xZDr8vAGZSk6RZjh");
    QTest::newRow("beyond ASCII, with a blank") << u"Pässwörter 漢字"_s << QByteArray("ARGuwQU1garOxVh7");
}

void TestPasswordEncoder::givesTheFormThatIsStored() {
    QFETCH(QString, password);
    QFETCH(QByteArray, form);
    QCOMPARE(QByteArray::fromStdString(encode(password)), form);
    QCOMPARE(QByteArray::fromStdString(encode(password)), form);  // once more: it depends on nothing else
    QCOMPARE(form.size(), qsizetype(tessaly::PasswordEncoder::EncodedLength));
}

void TestPasswordEncoder::keepsPasswordsApart() {
    const QStringList passwords{u"a"_s, u"A"_s, u"a "_s, u" a"_s, u"aa"_s};
    QSet<QByteArray> forms;
    for (const QString& password : passwords)
        forms.insert(QByteArray::fromStdString(encode(password)));
    QCOMPARE(forms.size(), passwords.size());
}

void TestPasswordEncoder::takesAPasswordOfAnyLength() {
    QCOMPARE(encode(QString(100'000, u'x')).size(), tessaly::PasswordEncoder::EncodedLength);
}

void TestPasswordEncoder::throwsWhenMemoryFails() {
    rlimit before{};
    QCOMPARE(getrlimit(RLIMIT_AS, &before), 0);
    // Room for the process as it is and a little more, but not for the 64 MiB of an encoding.
    QFile statm{u"/proc/self/statm"_s};
    QVERIFY(statm.open(QIODevice::ReadOnly));
    const rlim_t used =
        statm.readLine().split(' ').first().toULongLong() * static_cast<rlim_t>(getpagesize());
    const rlimit tight{.rlim_cur = used + (16U << 20U), .rlim_max = before.rlim_max};
    QString description;
    QCOMPARE(setrlimit(RLIMIT_AS, &tight), 0);
    try {
        (void)tessaly::PasswordEncoder{}.encode("secret");
    } catch (const std::runtime_error& error) {
        description = QString::fromUtf8(error.what());
    }
    QCOMPARE(setrlimit(RLIMIT_AS, &before), 0);
    QCOMPARE(description, u"The password cannot be encoded: not enough memory"_s);
}

QTEST_APPLESS_MAIN(TestPasswordEncoder)
#include "tst_passwordencoder.moc"
