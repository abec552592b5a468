#pragma once
// What the dialog is told: the certificates to choose from.
#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QVector>

// Texts are harmless to show: without control characters and without those that turn the
// direction of text, for anyone can make a certificate with any name.
struct Certificate {
  QString id;    // as it came; never shown
  QString name;  // never empty
  QString subject, issuer, issuerName, serial, keyType, email, device, location, fingerprint;
  QStringList usage;      // names of key-usage bits
  QDateTime from, until;  // invalid when not told
};

struct Request {
  QVector<Certificate> certificates;
  bool multiple = false;
  QString language;  // empty: the environment's
  QString program;   // that asks; may be empty
};

// False when the line is no list.
bool ParseRequest(const QByteArray& line, Request* request);
