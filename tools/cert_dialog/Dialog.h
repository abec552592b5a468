#pragma once
// The window. Enter signs with what is selected, Escape and closing the window cancel.
#include <QDialog>
#include <QTimer>

#include "Certificate.h"
#include "Words.h"

class CertificateList;
class DetailsPane;
class QLayout;
class QPushButton;

class Dialog : public QDialog {
 public:
  explicit Dialog(const Request& request);

  // A new list in the place of the old.
  void Show(const QVector<Certificate>& certificates);

  // Ids; empty when cancelled.
  QStringList Chosen() const;

 protected:
  void changeEvent(QEvent* event) override;

 private:
  QWidget* MakeHeading(const Request& request);
  QLayout* MakeButtons();
  void ShowDetails(bool shown);
  void NoteSelection();
  void Hesitate();
  void FitIntoScreen();

  const Words& m_words;
  CertificateList* m_list;
  DetailsPane* m_details;
  QPushButton* m_choose = nullptr;
  QTimer m_hesitation;
};
