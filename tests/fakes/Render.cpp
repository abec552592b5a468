#include "Render.h"

#include <cstdio>

std::string Shown(const void* data, size_t size) {
  std::string text;
  for (size_t i = 0; i < size; ++i) {
    const unsigned char byte = static_cast<const unsigned char*>(data)[i];
    char escape[8];
    snprintf(escape, sizeof(escape), "\\x%02X", byte);
    text += byte >= 0x20 && byte < 0x7F ? std::string(1, static_cast<char>(byte)) : escape;
  }
  return text;
}

std::string Shown(const char* text) {
  return text == nullptr ? "null" : Shown(text, std::char_traits<char>::length(text));
}

std::string Shown(const wchar_t* text) {
  if (text == nullptr) return "null";
  std::string shown;
  for (; *text != 0; ++text) {
    char escape[16];
    snprintf(escape, sizeof(escape), "\\u%04X", static_cast<unsigned>(*text));
    shown += *text >= 0x20 && *text < 0x7F ? std::string(1, static_cast<char>(*text)) : escape;
  }
  return shown;
}

std::string Shown(ISmartList<tag_VEL_CERT_FILTER_ITEM>& filters) {
  std::string text;
  for (int i = 0; i < filters.GetCount(); ++i) {
    tag_VEL_CERT_FILTER_ITEM& item = filters.GetItem(i);
    text += (i == 0 ? "" : " ") + std::to_string(item.Type) + "=" + Shown(item.Value);
  }
  return text;
}

std::string Shown(ISmartList<tag_VEL_KEY_INFO_EX>& keys) {
  std::string text;
  for (int i = 0; i < keys.GetCount(); ++i) {
    tag_VEL_KEY_INFO_EX& key = keys.GetItem(i);
    text += (i == 0 ? "" : " ") + std::to_string(key.CryptoInterfaceType) + ":" +
            key.InterfaceLibName + ":" + std::to_string(key.RSAHashALg) + ":" +
            std::to_string(key.SM2HashALg);
    if (key.PVIDEnable) text += std::string(":") + key.PVID;
  }
  return text;
}
