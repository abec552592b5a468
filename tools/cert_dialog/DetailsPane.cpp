#include "DetailsPane.h"

#include <QFormLayout>
#include <QLabel>

namespace {

QString TimeText(const QDateTime& time) {
  return time.isValid() ? time.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"))
                        : QStringLiteral("?");
}

// Room for line breaks: a long number has no blanks.
QString InGroups(const QString& digits) {
  QString text;
  for (int i = 0; i < digits.size(); i += 8) text += digits.mid(i, 8) + QLatin1Char(' ');
  return text.trimmed();
}

QString UsageText(const Words& words, const QStringList& usage) {
  QStringList names;
  for (const QString& each : usage) names.append(UsageName(words, each));
  return names.join(QStringLiteral(", "));
}

void AddRow(QFormLayout* form, const char* name, const QString& value) {
  if (value.isEmpty()) return;
  QLabel* const label = new QLabel(Text(name));
  QPalette dim = label->palette();
  QColor color = dim.color(QPalette::WindowText);
  color.setAlphaF(0.65);
  dim.setColor(QPalette::WindowText, color);
  label->setPalette(dim);
  QLabel* const text = new QLabel;
  text->setTextFormat(Qt::PlainText);
  text->setText(value);
  text->setWordWrap(true);
  text->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
  text->setFocusPolicy(Qt::NoFocus);
  text->setAccessibleName(Text(name) + QLatin1String(": ") + value);
  form->addRow(label, text);
}

}  // namespace

DetailsPane::DetailsPane(const Words& words) : m_words(words) {
  setWidgetResizable(true);
  setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  setAccessibleName(Text(words.details).remove(QLatin1Char('&')));
}

void DetailsPane::Show(const Certificate* certificate) {
  QWidget* const page = new QWidget;
  QFormLayout* const form = new QFormLayout(page);
  form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
  form->setRowWrapPolicy(QFormLayout::WrapLongRows);
  form->setVerticalSpacing(4);
  if (certificate != nullptr) {
    AddRow(form, m_words.subject, certificate->subject);
    AddRow(form, m_words.issuer, certificate->issuerName);
    AddRow(form, m_words.serial, certificate->serial);
    AddRow(form, m_words.validity,
           TimeText(certificate->from) + QStringLiteral(" – ") + TimeText(certificate->until));
    AddRow(form, m_words.key, certificate->keyType);
    AddRow(form, m_words.usage, UsageText(m_words, certificate->usage));
    AddRow(form, m_words.email, certificate->email);
    AddRow(form, m_words.location, certificate->location);
    AddRow(form, m_words.fingerprint, InGroups(certificate->fingerprint));
  }
  setWidget(page);
}
