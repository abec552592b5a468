#pragma once
// The list of certificates: a row of three lines for each. Arrows, Home, End, page keys and the
// first letters of a name move; what is selected stays selected when the list changes.
#include <QListWidget>
#include <QStringList>

#include "Certificate.h"
#include "Words.h"

class CertificateList : public QListWidget {
 public:
  CertificateList(const Words& words, bool multiple);

  // Selects the first certificate the first time. Later, a selected one that has left the list
  // leaves nothing selected, so that no other is taken in its place.
  void Show(const QVector<Certificate>& certificates);

  // Ids, in the order of the list.
  QStringList Chosen() const;

  // Null when there is no current row.
  const Certificate* Current() const;

  QSize sizeHint() const override;         // up to four rows
  QSize minimumSizeHint() const override;  // one row

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  const Words& m_words;
  QVector<Certificate> m_certificates;
  bool m_isFirst = true;
};
