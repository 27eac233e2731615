#include "runtime/ReferenceEngineInstaller.h"
#include "runtime/PythonRuntimeService.h"
#include "runtime/SetupError.h"
#include "support/TempInstallRoot.h"

#include <QCoro/QCoroTask>
#include <QtTest>

namespace {
QCoro::Task<QString> installOrError(PythonRuntimeService& runtime, QString source) {
    QString result;
    try {
        result = co_await ReferenceEngineInstaller::install(runtime, source);
    } catch (const SetupError& error) {
        result = QStringLiteral("error: ") + error.message();
    }
    co_return result;
}

std::unique_ptr<PythonRuntimeService> runtimeIn(const TempInstallRoot& temp) {
    return std::make_unique<PythonRuntimeService>(
        PythonRuntimeService::Config{{temp.root(), temp.documents(), temp.home(), {}, {}},
                                     temp.settingsFile(),
                                     QProcessEnvironment::systemEnvironment(),
                                     temp.home(),
                                     QStringLiteral("u"),
                                     1});
}
} // namespace

class ReferenceEngineInstallerTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void installsAReadyEngineAndRecordsItsTag() {
        TempInstallRoot temp;
        temp.writeFile(QStringLiteral("engine/pyproject.toml"),
                       "[project]\nname = \"e\"\nversion = \"1.2.3\"\n");
        temp.writeFile(QStringLiteral("engine/app/__init__.py"), "");
        temp.writeFile(QStringLiteral("engine/app/main.py"), "import json\napp = object()\n");
        temp.writeFile(QStringLiteral("engine/tests/test_x.py"), "");
        temp.writeFile(QStringLiteral("engine/app/__pycache__/main.cpython-311.pyc"), "");
        auto runtime = runtimeIn(temp);
        const QString tag = QCoro::waitFor(installOrError(*runtime, temp.path() + QStringLiteral("/engine")));
        QCOMPARE(tag, QStringLiteral("v1.2.3"));
        QVERIFY(runtime->isBackendInstalled(tag));
        QCOMPARE(runtime->manifest().backendTag, tag);
        const QString folder = runtime->layout().backendDir(tag);
        QVERIFY(QFileInfo::exists(folder + QStringLiteral("/app/main.py")));
        QVERIFY(!QFileInfo::exists(folder + QStringLiteral("/tests")));
        QVERIFY(!QFileInfo::exists(folder + QStringLiteral("/app/__pycache__/main.cpython-311.pyc")));
        QVERIFY(!QFileInfo::exists(folder + QStringLiteral(".partial")));
        ManifestStore reread{runtime->layout()};
        reread.load();
        QCOMPARE(reread.manifest().backendTag, tag);
    }

    void anEngineThatDoesNotImportLeavesNothingBehind() {
        TempInstallRoot temp;
        temp.writeFile(QStringLiteral("engine/pyproject.toml"), "[project]\nversion = \"2.0.0\"\n");
        temp.writeFile(QStringLiteral("engine/app/__init__.py"), "");
        temp.writeFile(QStringLiteral("engine/app/main.py"), "import no_such_module_here\n");
        auto runtime = runtimeIn(temp);
        const QString result =
            QCoro::waitFor(installOrError(*runtime, temp.path() + QStringLiteral("/engine")));
        QVERIFY2(result.startsWith(QStringLiteral("error: python (code 1)\n")), qPrintable(result));
        QVERIFY(result.contains(QStringLiteral("no_such_module_here")));
        QVERIFY(!QFileInfo::exists(runtime->layout().backendDir(QStringLiteral("v2.0.0"))));
        QVERIFY(!QFileInfo::exists(runtime->layout().backendDir(QStringLiteral("v2.0.0")) +
                                   QStringLiteral(".partial")));
        QVERIFY(!runtime->manifest().backendTag);
    }

    void aFolderWithoutVersionIsRefused() {
        TempInstallRoot temp;
        temp.writeFile(QStringLiteral("engine/pyproject.toml"), "[project]\nname = \"e\"\n");
        auto runtime = runtimeIn(temp);
        const QString result =
            QCoro::waitFor(installOrError(*runtime, temp.path() + QStringLiteral("/engine")));
        QVERIFY2(result.startsWith(QStringLiteral("error: Moteur de référence introuvable")),
                 qPrintable(result));
    }
};

QTEST_GUILESS_MAIN(ReferenceEngineInstallerTest)
#include "ReferenceEngineInstallerTest.moc"
