#include "Words.h"

#include <QtGlobal>
#include <utility>

namespace {

const Words kEnglish = {
    "Choose a Certificate",
    "Choose a certificate to sign with",
    "Choose the certificates to sign with",
    "“%1” wants to sign.",
    "Certificates",
    "There is no certificate that can sign. Plug in the key.",
    "&Sign",
    "&Cancel",
    "&Details",
    "Issued by %1",
    "Valid until %1",
    "Expired on %1",
    "Not valid before %1",
    "Subject",
    "Issuer",
    "Serial number",
    "Validity",
    "Key",
    "Usage",
    "E-mail",
    "Device",
    "SHA-256",
    "Digital signature",
    "Non-repudiation",
    "Key encipherment",
    "Data encipherment",
    "Key agreement",
};

const Words kChinese = {
    "选择证书",
    "请选择签名证书",
    "请选择签名证书（可多选）",
    "程序“%1”请求签名。",
    "证书列表",
    "没有可用于签名的证书，请插入密钥。",
    "签名(&S)",
    "取消(&C)",
    "详细信息(&D)",
    "颁发者：%1",
    "有效期至 %1",
    "已于 %1 过期",
    "%1 起生效",
    "主题",
    "颁发者",
    "序列号",
    "有效期",
    "密钥",
    "用途",
    "邮箱",
    "设备",
    "SHA-256",
    "数字签名",
    "不可否认",
    "密钥加密",
    "数据加密",
    "密钥协商",
};

}  // namespace

const Words& WordsFor(const QString& language) {
  QString wanted = language;
  for (const char* const name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    if (wanted.isEmpty()) wanted = QString::fromLocal8Bit(qgetenv(name));
  }
  const QString first = QString::fromLocal8Bit(qgetenv("LANGUAGE"));
  const bool isNone =
      wanted.isEmpty() || wanted == QLatin1String("C") || wanted == QLatin1String("POSIX");
  if (language.isEmpty() && !first.isEmpty() && !isNone) wanted = first;
  return wanted.startsWith(QLatin1String("zh")) ? kChinese : kEnglish;
}

QString UsageName(const Words& words, const QString& bit) {
  const std::pair<const char*, const char*> names[] = {{"digitalSignature", words.digitalSignature},
                                                       {"nonRepudiation", words.nonRepudiation},
                                                       {"keyEncipherment", words.keyEncipherment},
                                                       {"dataEncipherment", words.dataEncipherment},
                                                       {"keyAgreement", words.keyAgreement}};
  for (const auto& name : names) {
    if (bit == QLatin1String(name.first)) return Text(name.second);
  }
  return bit;
}

QString Text(const char* word) {
  return QString::fromUtf8(word);
}

QString Text(const char* word, const QString& part) {
  return QString::fromUtf8(word).arg(part);
}
