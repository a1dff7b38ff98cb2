#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <QTemporaryDir>

#include "tests/tessalyd/Encapsulated.h"
#include "tests/tessalyd/services/retrieve/RetrieveTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

/// Moving pictures as an endoscope sends them, made by another product's coders.
class VideoTest : public RetrieveTest {
    Q_OBJECT

  private Q_SLOTS:
    void comesBackAsItCame_data();
    void comesBackAsItCame();

  private:
    static constexpr const char* VideoEndoscopic = UID_VideoEndoscopicImageStorage;
    /// A sum over the decoded frames.
    [[nodiscard]] static QString framesOf(const QString& file) {
        return run(u"ffmpeg"_s, {u"-v"_s, u"error"_s, u"-i"_s, file, u"-f"_s, u"md5"_s, u"-"_s}).output;
    }

    QTemporaryDir folder_;
};

void VideoTest::comesBackAsItCame_data() {
    QTest::addColumn<std::string>("syntax");
    QTest::addColumn<QString>("coder");
    QTest::addColumn<QString>("container");
    QTest::addColumn<bool>("isDecoded");  // by a port that decodes what it can
    const auto add = [](const char* name, const char* syntax, const QString& coder,
                        const QString& container) {
        QTest::addRow("%s", name) << std::string{syntax} << coder << container << false;
        QTest::addRow("%s, to a port that decodes", name)
            << std::string{syntax} << coder << container << true;
    };
    add("MPEG-2", UID_MPEG2MainProfileAtMainLevelTransferSyntax, u"mpeg2video"_s, u"mpeg"_s);
    add("MPEG-4 AVC", UID_MPEG4HighProfileLevel4_1TransferSyntax, u"libx264"_s, u"mp4"_s);
    add("HEVC", UID_HEVCMainProfileLevel5_1TransferSyntax, u"libx265"_s, u"mp4"_s);
}

void VideoTest::comesBackAsItCame() {
    QFETCH(const std::string, syntax);
    QFETCH(const QString, coder);
    QFETCH(const QString, container);
    QFETCH(const bool, isDecoded);
    constexpr int Frames = 25;
    const QString made = folder_.filePath(u"made."_s + container);
    const Outcome coded = run(u"ffmpeg"_s, {u"-v"_s, u"error"_s, u"-y"_s, u"-f"_s, u"lavfi"_s, u"-i"_s,
                                            u"testsrc=size=320x240:rate=25:duration=1"_s, u"-pix_fmt"_s,
                                            u"yuv420p"_s, u"-c:v"_s, coder, u"-f"_s, container, made});
    QVERIFY2(coded.exitCode == 0, qPrintable(coded.output));
    QFile file{made};
    QVERIFY(file.open(QIODevice::ReadOnly));
    QByteArray stream = file.readAll();
    const qsizetype length = stream.size();
    stream.append(length % 2, '\0');

    ImageSpec image{.rows = 240,
                    .columns = 320,
                    .samples = 3,
                    .bits = 8,
                    .stored = 8,
                    .photometric = "YBR_PARTIAL_420",
                    .frames = std::to_string(Frames)};
    image.object.study = Study;
    image.object.sopClass = VideoEndoscopic;
    const QByteArray sent = encapsulated(image, {stream});
    daemon_ = std::make_unique<Daemon>(QList<PortRow>{{.saveCompressed = !isDecoded}});
    daemon_->database.run(u"INSERT INTO DicomNodes (Name, AETitle, Query) VALUES ('viewer', 'VIEWER', 1)"_s);
    daemon_->launch();
    RequestorAssociation sender{daemon_->port(), "SCOPE", "TESSALY", {{VideoEndoscopic, {syntax}}}};
    const auto answer = sender.storeBytes(0, VideoEndoscopic, image.object.instance,
                                          {sent.data(), static_cast<std::size_t>(sent.size())});
    QVERIFY2(answer.arrived && answer.status == 0, answer.comment.c_str());
    sender.release();

    Retriever viewer{daemon_->port(), {{VideoEndoscopic, {syntax}, ASC_SC_ROLE_SCP}}};
    viewer.ask(Retriever::GetStudyRoot, "STUDY", {{DCM_StudyInstanceUID, Study}});
    const Retrieved got = viewer.collect();
    QCOMPARE(got.status, STATUS_Success);
    const QByteArray back = got.objects.value(QString::fromStdString(image.object.instance));
    QVERIFY(back == sent);
    // And it is a video that can be played.
    const qsizetype begin = back.indexOf(stream.first(64));
    QVERIFY(begin > 0);
    const QString copy = folder_.filePath(u"back."_s + container);
    QFile played{copy};
    QVERIFY(played.open(QIODevice::WriteOnly) && played.write(back.mid(begin, length)) == length);
    played.close();
    const QString frames = framesOf(copy);
    QVERIFY2(frames.startsWith(u"MD5="_s), qPrintable(frames));
    QCOMPARE(frames, framesOf(made));
}

QTEST_GUILESS_MAIN(VideoTest)
#include "tst_video.moc"
