// The library's run loop in Qt's.
#include <QCoreApplication>
#include <QSocketNotifier>

#include "Application.h"

int main(int argumentCount, char** arguments) {
  QCoreApplication qt(argumentCount, arguments);
  const Application application([] { QCoreApplication::quit(); });
  kestrin::MainRunLoop& runLoop = application.runLoop();

  QSocketNotifier readable(runLoop.fileDescriptor(), QSocketNotifier::Read);
  QObject::connect(&readable, &QSocketNotifier::activated, [&runLoop] { runLoop.runOneTurn(); });

  return QCoreApplication::exec();
}
