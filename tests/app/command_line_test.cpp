#include "app/command_line.h"

#include <QTest>

#include "app/single_instance.h"
#include "tests/app/app_test_support.h"

namespace quillmere {
namespace {

using Paths = std::vector<std::filesystem::path>;

std::filesystem::path here(const char* name) { return std::filesystem::current_path() / name; }

class CommandLineTest : public QObject {
  Q_OBJECT

 private Q_SLOTS:
  void parse_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<Paths>("scan");
    QTest::addColumn<QString>("out");  // empty: no destination

    const QString fixed = QStringLiteral("/home/u/Fixed");
    QTest::newRow("two parts then out")
        << QStringList{"quillmere", "--scan", "a.zip", "b.zip", "--out", fixed}
        << Paths{here("a.zip"), here("b.zip")} << fixed;
    QTest::newRow("out before scan") << QStringList{"quillmere", "--out", fixed, "--scan", "a.zip"}
                                     << Paths{here("a.zip")} << fixed;
    QTest::newRow("scan alone") << QStringList{"quillmere", "--scan"} << Paths{} << QString();
    QTest::newRow("scan without paths keeps out")
        << QStringList{"quillmere", "--scan", "--out", "/x"} << Paths{} << QStringLiteral("/x");
    QTest::newRow("out as the last argument is ignored")
        << QStringList{"quillmere", "--scan", "a", "--out"} << Paths{here("a")} << QString();
    QTest::newRow("out takes the next argument as it stands")
        << QStringList{"quillmere", "--out", "--scan", "a"} << Paths{here("a")}
        << QString::fromStdString(here("--scan").string());
    QTest::newRow("a single dash does not end the list")
        << QStringList{"quillmere", "--scan", "a", "-b", "--c", "d"} << Paths{here("a"), here("-b")}
        << QString();
    QTest::newRow("no scan: out is not looked at")
        << QStringList{"quillmere", "--out", "/x"} << Paths{} << QString();
    QTest::newRow("first out wins")
        << QStringList{"quillmere", "--scan", "/e", "--out", "/1", "--out", "/2"} << Paths{"/e"}
        << QStringLiteral("/1");
    QTest::newRow("first scan wins")
        << QStringList{"quillmere", "--scan", "/a", "--x", "--scan", "/b"} << Paths{"/a"}
        << QString();
  }

  void parse() {
    QFETCH(QStringList, arguments);
    QFETCH(Paths, scan);
    QFETCH(QString, out);
    const CommandLine line = CommandLine::parse(arguments);
    QCOMPARE(line.scan, scan);
    QCOMPARE(line.out.has_value(), !out.isEmpty());
    if (line.out) QCOMPARE(QString::fromStdString(line.out->string()), out);
    QVERIFY(line.openedFiles.empty());
  }

  // What the desktop passes through the .desktop file's %U: paths or file URLs.
  void openedFilesAreMadeAbsolute() {
    const CommandLine line = CommandLine::parse(
        {"quillmere", "file:///home/u/My%20Export.zip", "part.zip", "/abs/folder"});
    QVERIFY(line.scan.empty());
    QCOMPARE(line.openedFiles, (Paths{"/home/u/My Export.zip", here("part.zip"), "/abs/folder"}));
  }

  // A second start hands its files to the first; an empty hand-over still arrives (it brings
  // the window forward).
  void secondStartHandsOverItsFiles() {
    const QString name =
        QStringLiteral("quillmere-test-%1").arg(QCoreApplication::applicationPid());
    SingleInstance first(name);
    std::vector<Paths> received;
    QVERIFY(first.listen([&received](const Paths& files) { received.push_back(files); }));
    SingleInstance second(name);
    QVERIFY(!second.listen({}));  // the first still answers: its socket is left alone
    QVERIFY(second.handOver({"/d/a b.zip", "/d/\xc3\xa9t\xc3\xa9"}));
    const Paths files{"/d/a b.zip", "/d/\xc3\xa9t\xc3\xa9"};
    QTRY_VERIFY(std::find(received.begin(), received.end(), files) != received.end());
    received.clear();
    QVERIFY(second.handOver({}));
    QTRY_COMPARE(received, std::vector<Paths>{Paths{}});
  }

  void nobodyToHandOverTo() {
    SingleInstance lonely(
        QStringLiteral("quillmere-test-nobody-%1").arg(QCoreApplication::applicationPid()));
    QVERIFY(!lonely.handOver({"/d/a.zip"}));
  }
};

}  // namespace
}  // namespace quillmere

std::unique_ptr<QObject> makeCommandLineTest() {
  return std::make_unique<quillmere::CommandLineTest>();
}

#include "command_line_test.moc"
