#include "Certificate.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

QString Harmless(QString text) {
  for (QChar& letter : text) {
    const ushort code = letter.unicode();
    const bool turnsText = (code >= 0x202A && code <= 0x202E) ||
                           (code >= 0x2066 && code <= 0x2069) || code == 0x200E || code == 0x200F;
    if (turnsText || letter.category() == QChar::Other_Control) letter = QChar(0xFFFD);
  }
  return text;
}

QString TextOf(const QJsonObject& object, const char* name) {
  return Harmless(object.value(QLatin1String(name)).toString());
}

QDateTime TimeOf(const QJsonObject& object, const char* name) {
  return QDateTime::fromString(object.value(QLatin1String(name)).toString(), Qt::ISODate);
}

QStringList UsageOf(const QJsonObject& object) {
  QStringList usage;
  const QJsonArray list = object.value(QLatin1String("usage")).toArray();
  for (const QJsonValue& each : list) usage.append(Harmless(each.toString()));
  return usage;
}

Certificate CertificateOf(const QJsonObject& object) {
  Certificate certificate;
  certificate.id = object.value(QLatin1String("id")).toString();
  certificate.subject = TextOf(object, "subject");
  certificate.serial = TextOf(object, "serial");
  certificate.issuer = TextOf(object, "issuer");
  certificate.issuerName = TextOf(object, "issuerName");
  certificate.keyType = TextOf(object, "keyType");
  certificate.email = TextOf(object, "email");
  certificate.device = TextOf(object, "device");
  certificate.location = TextOf(object, "location");
  certificate.fingerprint = TextOf(object, "fingerprint");
  certificate.usage = UsageOf(object);
  certificate.from = TimeOf(object, "validFrom");
  certificate.until = TimeOf(object, "validUntil");
  for (const QString& name : {TextOf(object, "name"), certificate.subject, certificate.serial,
                              certificate.device, QStringLiteral("?")}) {
    if (certificate.name.trimmed().isEmpty()) certificate.name = name;
  }
  return certificate;
}

}  // namespace

bool ParseRequest(const QByteArray& line, Request* request) {
  const QJsonObject object = QJsonDocument::fromJson(line).object();
  const QJsonValue list = object.value(QLatin1String("certificates"));
  if (!list.isArray()) return false;
  request->certificates.clear();
  const QJsonArray certificates = list.toArray();
  for (const QJsonValue& each : certificates) {
    request->certificates.append(CertificateOf(each.toObject()));
  }
  request->multiple = object.value(QLatin1String("multiple")).toBool();
  request->language = object.value(QLatin1String("language")).toString();
  request->program = TextOf(object, "program");
  return true;
}
