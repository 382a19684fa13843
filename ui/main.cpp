#include "ui/MainWindow.h"

#include <QApplication>
#include <QDir>
#include <QIcon>

int main(int argc, char *argv[])
{
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Ambrel"));
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/ambrel.png")));
    MainWindow window;
    window.grabGesture(Qt::PanGesture);
    window.grabGesture(Qt::PinchGesture);
    window.show();
    // "ambrel FOLDER" opens that project; the application object has taken
    // its own options out of the arguments already.
    const QStringList arguments = QApplication::arguments().mid(1);
    if (!arguments.isEmpty()) {
        if (QDir(arguments.first()).exists())
            window.openProject(QDir(arguments.first()).absolutePath());
        else
            qWarning("No such project folder: %s", qPrintable(arguments.first()));
    }
    return application.exec();
}
