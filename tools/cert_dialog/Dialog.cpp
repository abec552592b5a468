#include "Dialog.h"

#include <QDialogButtonBox>
#include <QEvent>
#include <QGuiApplication>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QVBoxLayout>

#include "CertificateList.h"
#include "DetailsPane.h"

namespace {

// A window that opens under typing fingers, or a list that changes under them, must not take the
// key that was meant for something else.
constexpr int kHesitation = 400;

constexpr int kUsualWidth = 520;
constexpr int kDetailsHeight = 190;

}  // namespace

Dialog::Dialog(const Request& request)
    : m_words(WordsFor(request.language)),
      m_list(new CertificateList(m_words, request.multiple)),
      m_details(new DetailsPane(m_words)) {
  setWindowTitle(Text(m_words.title));
  setWindowIcon(QIcon::fromTheme(QStringLiteral("application-certificate")));
  // Above the window of the program that asks, to which it cannot be tied.
  setWindowFlags((windowFlags() | Qt::WindowStaysOnTopHint) & ~Qt::WindowContextHelpButtonHint);
  QVBoxLayout* const layout = new QVBoxLayout(this);
  layout->addWidget(MakeHeading(request));
  layout->addWidget(m_list, 3);
  layout->addWidget(m_details, 2);
  layout->addLayout(MakeButtons());
  m_details->setMinimumHeight(48);
  m_details->hide();
  m_hesitation.setSingleShot(true);
  connect(&m_hesitation, &QTimer::timeout, this, [this] { NoteSelection(); });
  connect(m_list, &QListWidget::itemSelectionChanged, this, [this] { NoteSelection(); });
  connect(m_list, &QListWidget::currentRowChanged, this, [this] { NoteSelection(); });
  connect(m_list, &QListWidget::doubleClicked, this, [this] { m_choose->click(); });
  Show(request.certificates);
  m_list->setFocus();
  resize(kUsualWidth, layout->hasHeightForWidth() ? layout->totalHeightForWidth(kUsualWidth)
                                                  : sizeHint().height());
  FitIntoScreen();
}

QWidget* Dialog::MakeHeading(const Request& request) {
  QWidget* const box = new QWidget;
  QVBoxLayout* const lines = new QVBoxLayout(box);
  lines->setContentsMargins(2, 2, 2, 4);
  lines->setSpacing(2);
  QLabel* const heading =
      new QLabel(Text(request.multiple ? m_words.headingSeveral : m_words.heading));
  QFont font = heading->font();
  font.setPointSizeF(font.pointSizeF() * 1.3);
  font.setBold(true);
  heading->setFont(font);
  heading->setWordWrap(true);
  heading->setBuddy(m_list);
  lines->addWidget(heading);
  if (!request.program.isEmpty()) {
    QLabel* const asks = new QLabel;
    asks->setTextFormat(Qt::PlainText);
    asks->setText(Text(m_words.asks, request.program));
    asks->setWordWrap(true);
    lines->addWidget(asks);
  }
  return box;
}

QLayout* Dialog::MakeButtons() {
  QPushButton* const details = new QPushButton(Text(m_words.details));
  details->setCheckable(true);
  details->setAutoDefault(false);
  connect(details, &QPushButton::toggled, this, [this](bool on) { ShowDetails(on); });
  QDialogButtonBox* const box = new QDialogButtonBox;
  m_choose = box->addButton(Text(m_words.choose), QDialogButtonBox::AcceptRole);
  m_choose->setDefault(true);
  QPushButton* const cancel = box->addButton(Text(m_words.cancel), QDialogButtonBox::RejectRole);
  cancel->setAutoDefault(false);
  connect(box, &QDialogButtonBox::accepted, this, &QDialog::accept);
  connect(box, &QDialogButtonBox::rejected, this, &QDialog::reject);
  QHBoxLayout* const line = new QHBoxLayout;
  line->addWidget(details);
  line->addWidget(box, 1);
  return line;
}

void Dialog::Show(const QVector<Certificate>& certificates) {
  m_list->Show(certificates);
  Hesitate();
}

QStringList Dialog::Chosen() const {
  return result() == Accepted ? m_list->Chosen() : QStringList();
}

void Dialog::changeEvent(QEvent* event) {
  QDialog::changeEvent(event);
  if (event->type() == QEvent::ActivationChange && isActiveWindow()) Hesitate();
}

void Dialog::ShowDetails(bool shown) {
  m_details->setVisible(shown);
  const int room = kDetailsHeight + layout()->spacing();
  if (!isMaximized() && !isFullScreen()) resize(width(), height() + (shown ? room : -room));
  FitIntoScreen();
}

void Dialog::NoteSelection() {
  m_choose->setEnabled(!m_hesitation.isActive() && !m_list->Chosen().isEmpty());
  m_details->Show(m_list->Current());
}

void Dialog::Hesitate() {
  m_hesitation.start(kHesitation);
  NoteSelection();
}

void Dialog::FitIntoScreen() {
  const QScreen* const screen = QGuiApplication::primaryScreen();
  if (screen == nullptr) return;
  const QSize room = screen->availableGeometry().size() - QSize(16, 40);  // the window's frame
  setMaximumSize(screen->availableGeometry().size());
  resize(size().boundedTo(room));
}
