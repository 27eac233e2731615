#include "runtime/ToolRunner.h"
#include "runtime/ChildEnvironment.h"
#include "runtime/OutputBox.h"
#include "runtime/SetupError.h"
#include "support/TempInstallRoot.h"

#include <QCoro/QCoroTask>
#include <QtTest>

namespace {
QCoro::Task<QString> errorOf(QString executable, QStringList arguments, ToolRunOptions options) {
    try {
        co_await runTool(executable, arguments, options);
    } catch (const SetupError& error) {
        co_return error.message();
    }
    co_return QString();
}

QString runCapturingError(const QString& executable, const QStringList& arguments,
                          ToolRunOptions options = {}) {
    return QCoro::waitFor(errorOf(executable, arguments, std::move(options)));
}
} // namespace

class ToolRunnerTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void returnsWholeOutputAndLinesInOrder() {
        QStringList lines;
        ToolRunOptions options;
        options.onLine = [&](const QString& line) { lines.append(line); };
        const QStringList arguments{QStringLiteral("-c"),
                                    QStringLiteral("printf 'a\\nb'; echo ' c' >&2; printf 'é\\n'")};
        const QString output = QCoro::waitFor(runTool(QStringLiteral("/bin/sh"), arguments, options));
        QCOMPARE(output, QStringLiteral("a\nb c\né\n"));
        QCOMPARE(lines, (QStringList{QStringLiteral("a"), QStringLiteral("b c"), QStringLiteral("é")}));
    }

    void failureCarriesNameCodeAndLastEightLines() {
        const QStringList arguments{
            QStringLiteral("-c"), QStringLiteral("for i in $(seq 1 20); do echo line$i; echo; done; exit 3")};
        const QString message = runCapturingError(QStringLiteral("/bin/sh"), arguments);
        QStringList expected{QStringLiteral("sh (code 3)")};
        for (int i = 13; i <= 20; ++i)
            expected.append(QStringLiteral("line%1").arg(i));
        QCOMPARE(message, expected.join(QLatin1Char('\n')));
    }

    void fewerThanEightLinesAreAllKept() {
        const QStringList arguments{QStringLiteral("-c"), QStringLiteral("echo one; echo two; exit 1")};
        QCOMPARE(runCapturingError(QStringLiteral("/bin/sh"), arguments),
                 QStringLiteral("sh (code 1)\none\ntwo"));
    }

    void missingExecutableCannotBeLaunched() {
        const QString message = runCapturingError(QStringLiteral("/nonexistent/tool-x"), {});
        QVERIFY2(message.startsWith(QStringLiteral("Impossible de lancer tool-x : ")), qPrintable(message));
    }

    void workingDirectoryAndEnvironment() {
        TempInstallRoot temp;
        QProcessEnvironment environment;
        environment.insert(QStringLiteral("ONLY"), QStringLiteral("this"));
        ToolRunOptions options;
        options.workingDirectory = temp.path();
        options.environment = environment;
        const QStringList arguments{QStringLiteral("-c"),
                                    QStringLiteral("pwd; echo \"$ONLY-${HOME:-none}\"")};
        const QString output = QCoro::waitFor(runTool(QStringLiteral("/bin/sh"), arguments, options));
        QCOMPARE(output, QDir(temp.path()).canonicalPath() + QStringLiteral("\nthis-none\n"));
    }

    void standardInputIsTheNullDevice() {
        const QStringList arguments{QStringLiteral("-c"), QStringLiteral("cat; echo done")};
        QCOMPARE(QCoro::waitFor(runTool(QStringLiteral("/bin/sh"), arguments)), QStringLiteral("done\n"));
    }

    void outerPythonSetupNeverReachesAChild() {
        QProcessEnvironment outer;
        outer.insert(QStringLiteral("PATH"), QStringLiteral("/custom/bin::/usr/bin"));
        for (const char* name : {"VIRTUAL_ENV", "PYTHONHOME", "PYTHONPATH", "CONDA_PREFIX"})
            outer.insert(QLatin1String(name), QStringLiteral("/leak"));
        outer.insert(QStringLiteral("KEEP"), QStringLiteral("kept"));
        ToolRunOptions options;
        options.environment = ChildEnvironment::clean(outer, QStringLiteral("/home/x"), QStringLiteral("x"));
        const QString output = QCoro::waitFor(runTool(QStringLiteral("/usr/bin/env"), {}, options));
        const QStringList lines = output.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        QVERIFY(!output.contains(QStringLiteral("/leak")));
        QVERIFY(lines.contains(QStringLiteral("KEEP=kept")));
        QVERIFY(lines.contains(QStringLiteral("HOME=/home/x")));
        QVERIFY(lines.contains(QStringLiteral("USER=x")));
        QVERIFY(lines.contains(QStringLiteral("LANG=en_US.UTF-8")));
        QVERIFY(lines.contains(QStringLiteral(
            "PATH=/custom/bin:/usr/bin:/bin:/usr/sbin:/sbin:/opt/homebrew/bin:/usr/local/bin")));
    }

    void outputBoxJoinsLinesAndCharactersSplitAcrossChunks() {
        OutputBox box;
        QStringList lines;
        const auto collect = [&](const QString& line) { lines.append(line); };
        const QByteArray text = QStringLiteral("première\r\nligne é\nfin").toUtf8();
        for (qsizetype i = 0; i < text.size(); ++i) // one byte at a time
            box.append(text.mid(i, 1), collect);
        QCOMPARE(lines, (QStringList{QStringLiteral("première"), QStringLiteral("ligne é")}));
        QCOMPARE(box.text(), QString::fromUtf8(text));
    }
};

QTEST_GUILESS_MAIN(ToolRunnerTest)
#include "ToolRunnerTest.moc"
