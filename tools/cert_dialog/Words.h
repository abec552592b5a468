#pragma once
// The texts of the dialog, in Chinese and in English.
#include <QString>

struct Words {
  const char *title, *heading, *headingSeveral;
  const char* asks;  // %1: the program
  const char *list, *empty, *choose, *cancel, *details;
  const char *issuedBy, *validUntil, *expired, *notYetValid;  // %1
  const char *subject, *issuer, *serial, *validity, *key, *usage, *email, *location, *fingerprint;
  const char *digitalSignature, *nonRepudiation, *keyEncipherment, *dataEncipherment, *keyAgreement;
};

// By "zh_CN", "en" and the like; empty: by the environment (LC_ALL,
// LC_MESSAGES, LANG, and LANGUAGE before them).
const Words& WordsFor(const QString& language);

// What people call the key-usage bit; an unknown one keeps its name.
QString UsageName(const Words& words, const QString& bit);

QString Text(const char* word);
QString Text(const char* word, const QString& part);
