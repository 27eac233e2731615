#include "WindowMain.h"

#include <BuildInfo.h>
#include <QApplication>
#include <QLabel>
#include <QMainWindow>

int runWindow(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Marlune"));
    QApplication::setApplicationName(QStringLiteral("Marlune"));
    QApplication::setApplicationVersion(QStringLiteral(MARLUNE_VERSION));
    QMainWindow window;
    window.setWindowTitle(QStringLiteral("Marlune"));
    window.setMinimumSize(1100, 700);
    auto* label = new QLabel(QStringLiteral("Marlune %1").arg(QStringLiteral(MARLUNE_VERSION)), &window);
    label->setAlignment(Qt::AlignCenter);
    window.setCentralWidget(label);
    window.show();
    return app.exec();
}
