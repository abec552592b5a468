#include "CertificateList.h"

#include <QPainter>
#include <QStyledItemDelegate>

namespace {

enum Role { kIdRole = Qt::UserRole, kIssuerRole, kValidityRole, kKeyTypeRole, kWarnRole };

constexpr int kMargin = 8;
constexpr int kGap = 10;

QFont Scaled(QFont font, double factor, bool bold = false) {
  font.setPointSizeF(font.pointSizeF() * factor);
  font.setBold(bold);
  return font;
}

QString DateOf(const QDateTime& time) {
  return time.toLocalTime().date().toString(Qt::ISODate);
}

// How long the certificate is valid; `warn` when it is not so now.
QString ValidityOf(const Certificate& certificate, const Words& words, bool* warn) {
  const QDateTime now = QDateTime::currentDateTimeUtc();
  *warn = true;
  if (certificate.until.isValid() && certificate.until < now) {
    return Text(words.expired, DateOf(certificate.until));
  }
  if (certificate.from.isValid() && certificate.from > now) {
    return Text(words.notYetValid, DateOf(certificate.from));
  }
  *warn = false;
  return certificate.until.isValid() ? Text(words.validUntil, DateOf(certificate.until))
                                     : QString();
}

// Paints a row: a badge with the first letter of the name, the name with the kind of key at the
// right, the issuer, the validity with the device.
class RowPainter : public QStyledItemDelegate {
 public:
  using QStyledItemDelegate::QStyledItemDelegate;

  static int Height(const QFont& font) {
    return QFontMetrics(Scaled(font, 1.1, true)).height() +
           2 * QFontMetrics(Scaled(font, 0.92)).height() + 2 * kMargin + 4;
  }

  QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex&) const override {
    return QSize(200, Height(option.font));
  }

  void paint(QPainter* painter, const QStyleOptionViewItem& option,
             const QModelIndex& index) const override {
    QStyleOptionViewItem frame = option;
    initStyleOption(&frame, index);
    frame.text.clear();
    frame.widget->style()->drawControl(QStyle::CE_ItemViewItem, &frame, painter, frame.widget);
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    const QRect inner = option.rect.adjusted(kMargin, kMargin, -kMargin, -kMargin);
    PaintBadge(painter, option, inner, index.data().toString());
    const bool selected = option.state.testFlag(QStyle::State_Selected);
    const QPalette::ColorGroup group =
        option.state.testFlag(QStyle::State_Active) ? QPalette::Active : QPalette::Inactive;
    const QColor color =
        option.palette.color(group, selected ? QPalette::HighlightedText : QPalette::Text);
    const int left = inner.left() + BadgeSize(inner) + kGap;
    PaintTexts(painter, option.font, QRect(QPoint(left, inner.top()), inner.bottomRight()), index,
               color, selected);
    painter->restore();
  }

 private:
  static int BadgeSize(const QRect& inner) { return qMin(inner.height(), 40); }

  static void PaintBadge(QPainter* painter, const QStyleOptionViewItem& option, const QRect& inner,
                         const QString& name) {
    static const QRgb colors[] = {0xFF2F6DB5, 0xFF2E7D5B, 0xFF8A5A2B,
                                  0xFF7A4B9A, 0xFFA8455A, 0xFF3F7D8C};
    const int size = BadgeSize(inner);
    const QRect circle(inner.left(), inner.top() + (inner.height() - size) / 2, size, size);
    painter->setPen(Qt::NoPen);
    painter->setBrush(QColor(colors[qHash(name, 0) % (sizeof(colors) / sizeof(colors[0]))]));
    painter->drawEllipse(circle);
    painter->setPen(Qt::white);
    painter->setFont(Scaled(option.font, 1.4));
    const int letters = name.size() > 1 && name.at(0).isHighSurrogate() ? 2 : 1;
    painter->drawText(circle, Qt::AlignCenter, name.left(letters).toUpper());
  }

  // Returns the width that it takes at the right of the line.
  static int PaintKeyType(QPainter* painter, const QRect& line, const QString& text,
                          const QColor& color) {
    if (text.isEmpty()) return 0;
    const int width = painter->fontMetrics().horizontalAdvance(text) + 12;
    const QRect box(line.right() - width, line.top(), width, line.height());
    QColor faint = color;
    faint.setAlphaF(0.35);
    painter->setPen(faint);
    painter->setBrush(Qt::NoBrush);
    painter->drawRoundedRect(QRectF(box).adjusted(0.5, 0.5, -0.5, -0.5), 4, 4);
    painter->setPen(color);
    painter->drawText(box, Qt::AlignCenter, text);
    return width + kGap;
  }

  static void PaintLine(QPainter* painter, const QRect& line, const QString& text) {
    painter->drawText(line, Qt::AlignVCenter | Qt::AlignLeft,
                      painter->fontMetrics().elidedText(text, Qt::ElideRight, line.width()));
  }

  static void PaintTexts(QPainter* painter, const QFont& font, const QRect& area,
                         const QModelIndex& index, const QColor& color, bool selected) {
    const QFont name = Scaled(font, 1.1, true);
    const QFont small = Scaled(font, 0.92);
    QRect line(area.left(), area.top(), area.width(), QFontMetrics(name).height() + 2);
    painter->setFont(small);
    const int taken = PaintKeyType(painter, line, index.data(kKeyTypeRole).toString(), color);
    painter->setPen(color);
    painter->setFont(name);
    PaintLine(painter, line.adjusted(0, 0, -taken, 0), index.data().toString());
    QColor dim = color;
    dim.setAlphaF(0.75);
    painter->setPen(dim);
    painter->setFont(small);
    line = QRect(area.left(), line.bottom() + 1, area.width(), QFontMetrics(small).height());
    PaintLine(painter, line, index.data(kIssuerRole).toString());
    if (index.data(kWarnRole).toBool() && !selected) painter->setPen(QColor(0xC0, 0x2B, 0x2B));
    PaintLine(painter, line.translated(0, line.height() + 1), index.data(kValidityRole).toString());
  }
};

}  // namespace

CertificateList::CertificateList(const Words& words, bool multiple) : m_words(words) {
  setItemDelegate(new RowPainter(this));
  setSelectionMode(multiple ? ExtendedSelection : SingleSelection);
  setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  setVerticalScrollMode(ScrollPerPixel);
  setUniformItemSizes(true);
  setAccessibleName(Text(words.list));
}

void CertificateList::Show(const QVector<Certificate>& certificates) {
  const QStringList before = Chosen();
  const Certificate* const current = Current();
  const QString currentId = current == nullptr ? QString() : current->id;
  clear();
  m_certificates = certificates;
  for (const Certificate& certificate : m_certificates) {
    bool warn = false;
    QString validity = ValidityOf(certificate, m_words, &warn);
    if (!certificate.device.isEmpty()) {
      validity += (validity.isEmpty() ? QString() : QStringLiteral("  ·  ")) + certificate.device;
    }
    const QString issuer = Text(m_words.issuedBy, certificate.issuer);
    QListWidgetItem* const item = new QListWidgetItem(certificate.name, this);
    item->setData(kIdRole, certificate.id);
    item->setData(kIssuerRole, issuer);
    item->setData(kValidityRole, validity);
    item->setData(kKeyTypeRole, certificate.keyType);
    item->setData(kWarnRole, warn);
    const QString sentence = QStringList({certificate.name, issuer, certificate.keyType, validity})
                                 .join(QStringLiteral(", "));
    item->setData(Qt::AccessibleTextRole, sentence);
    item->setToolTip(certificate.subject.toHtmlEscaped());
    if (certificate.id == currentId) setCurrentItem(item);
  }
  for (int row = 0; row < count(); ++row)
    item(row)->setSelected(before.contains(item(row)->data(kIdRole).toString()));
  if (m_isFirst) setCurrentRow(0);
  m_isFirst = false;
}

QStringList CertificateList::Chosen() const {
  QStringList ids;
  for (int row = 0; row < count(); ++row) {
    if (item(row)->isSelected()) ids.append(item(row)->data(kIdRole).toString());
  }
  return ids;
}

const Certificate* CertificateList::Current() const {
  const int row = currentRow();
  return row < 0 || row >= m_certificates.size() ? nullptr : &m_certificates[row];
}

QSize CertificateList::sizeHint() const {
  return QSize(480, qBound(2, count(), 4) * RowPainter::Height(font()) + 2 * frameWidth());
}

QSize CertificateList::minimumSizeHint() const {
  return QSize(200, RowPainter::Height(font()) + 2 * frameWidth());
}

void CertificateList::paintEvent(QPaintEvent* event) {
  QListWidget::paintEvent(event);
  if (count() > 0) return;
  QPainter painter(viewport());
  painter.setPen(palette().color(QPalette::Disabled, QPalette::Text));
  painter.drawText(viewport()->rect().adjusted(kMargin, 0, -kMargin, 0),
                   Qt::AlignCenter | Qt::TextWordWrap, Text(m_words.empty));
}
