// vctk-choose-certificate: shows certificates in a window and tells which one the user chose.
// Exit codes: 0 answered, 1 there was no list or nobody to answer, 69 no window can be shown.
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <QApplication>

#include "Channel.h"
#include "Dialog.h"

namespace {

const int kNobody = 1;
const int kCannotBeShown = 69;

// Qt ends the program by a crash when there is no display.
void TellNoDisplay(QtMsgType type, const QMessageLogContext&, const QString& message) {
  if (type == QtFatalMsg) {
    fprintf(stderr, "vctk-choose-certificate: %s\n", message.toLocal8Bit().constData());
    _exit(kCannotBeShown);
  }
}

// Everything is said; the libraries of a desktop need not be taken down in order.
[[noreturn]] void End(int code) {
  fflush(nullptr);
  _exit(code);
}

}  // namespace

int main(int argc, char** argv) {
  const int output = ClaimStandardOutput();
  qInstallMessageHandler(TellNoDisplay);
  QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
  QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
  QApplication application(argc, argv);
  Channel channel(output);
  QGuiApplication::setDesktopFileName(QStringLiteral("vctk-choose-certificate"));
  std::unique_ptr<Dialog> dialog;
  channel.onGone = [] { End(kNobody); };
  channel.onRequest = [&](const Request& request) {
    if (dialog != nullptr) {
      dialog->Show(request.certificates);
      channel.SayReady();
      return;
    }
    dialog = std::make_unique<Dialog>(request);
    QObject::connect(dialog.get(), &QDialog::finished, [&](int) {
      channel.Answer(dialog->Chosen());
      End(0);
    });
    dialog->show();
    dialog->raise();
    dialog->activateWindow();
    channel.SayReady();
  };
  QApplication::setQuitOnLastWindowClosed(false);
  return QApplication::exec();
}
