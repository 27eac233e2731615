#include "platform/PortListeners.h"
#include "support/TestSupport.h"

#include <QProcess>
#include <QTcpServer>
#include <QtTest>

namespace {
const char* kListener = R"(import socket, sys, time
family = socket.AF_INET6 if sys.argv[2] == "6" else socket.AF_INET
s = socket.socket(family); s.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
s.bind(("::1" if sys.argv[2] == "6" else "127.0.0.1", int(sys.argv[1]))); s.listen(); print("ready", flush=True)
if sys.argv[3] == "stubborn":
    import signal; signal.signal(signal.SIGTERM, signal.SIG_IGN)
while True: time.sleep(0.1)
)";
} // namespace

class PortListenersTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void listenersAreFoundAndStopped_data() {
        QTest::addColumn<QString>("family");
        QTest::addColumn<QString>("behaviour");
        QTest::newRow("IPv4, polite") << "4"
                                      << "polite";
        QTest::newRow("IPv6, polite") << "6"
                                      << "polite";
        QTest::newRow("IPv4, ignores SIGTERM") << "4"
                                               << "stubborn";
    }
    void listenersAreFoundAndStopped() {
        QFETCH(QString, family);
        QFETCH(QString, behaviour);
        const quint16 port = TestSupport::freePort();
        QProcess listener;
        listener.start(
            QStringLiteral("/usr/bin/python3"),
            {QStringLiteral("-c"), QString::fromUtf8(kListener), QString::number(port), family, behaviour});
        QVERIFY(listener.waitForReadyRead(5000));
        QCOMPARE(PortListeners::find(port), QList<pid_t>{static_cast<pid_t>(listener.processId())});
        PortListeners::freePort(port);
        QVERIFY(listener.waitForFinished(3000));
        QVERIFY(PortListeners::find(port).isEmpty());
    }

    void ownListenerAndOtherPortsAreLeftAlone() {
        QTcpServer own;
        QVERIFY(own.listen(QHostAddress::LocalHost, 0));
        QVERIFY(PortListeners::find(own.serverPort()).isEmpty());
        PortListeners::freePort(own.serverPort()); // must not kill this process
        QVERIFY(own.isListening());
        QVERIFY(PortListeners::find(TestSupport::freePort()).isEmpty());
    }
};

QTEST_GUILESS_MAIN(PortListenersTest)
#include "PortListenersTest.moc"
