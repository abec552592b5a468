#pragma once
// Everything that is known about one certificate; the texts can be selected and copied.
#include <QScrollArea>

#include "Certificate.h"
#include "Words.h"

class DetailsPane : public QScrollArea {
 public:
  explicit DetailsPane(const Words& words);

  void Show(const Certificate* certificate);  // null: nothing

 private:
  const Words& m_words;
};
