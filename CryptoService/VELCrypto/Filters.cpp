#include "Filters.h"

#include <time.h>

#include <algorithm>

#include "Text.h"

namespace velcrypto {

namespace {

using Test = std::function<bool(const Listed&)>;

const CertFacts& FactsIn(const Listed& listed) {
  return *listed.identity->facts;
}

bool Contains(LPCWSTR text, const std::wstring& foldedPart) {
  return Folded(text).find(foldedPart) != std::wstring::npos;
}

// Folded, and without the blanks around "," and "=" and at the ends.
std::wstring FoldedName(LPCWSTR text) {
  std::wstring name;
  bool afterSeparator = true;
  for (const wchar_t letter : Folded(text)) {
    const bool separator = letter == L',' || letter == L'=';
    if (letter == L' ' && afterSeparator) continue;
    while (separator && !name.empty() && name.back() == L' ') name.pop_back();
    name += letter;
    afterSeparator = separator;
  }
  while (!name.empty() && name.back() == L' ') name.pop_back();
  return name;
}

std::wstring WithoutLeadingZeros(LPCWSTR serial) {
  const std::wstring folded = Folded(serial);
  const size_t first = folded.find_first_not_of(L'0');
  return first == std::wstring::npos ? std::wstring() : folded.substr(first);
}

// Decimal digits alone, at most nine of them; -1 for anything else.
long NumberOf(LPCWSTR text) {
  const size_t length = wcslen(text);
  if (length == 0 || length > 9 || wcsspn(text, L"0123456789") != length) return -1;
  return wcstol(text, nullptr, 10);
}

Test IssuerTest(LPCWSTR value) {
  std::vector<std::wstring> alternatives;
  const std::wstring text = value;
  for (size_t start = 0; start <= text.size();) {
    const size_t end = std::min(text.find(L'|', start), text.size());
    const std::wstring name = FoldedName(text.substr(start, end - start).c_str());
    if (!name.empty()) alternatives.push_back(name);
    start = end + 1;
  }
  if (alternatives.empty()) return nullptr;
  return [alternatives](const Listed& listed) {
    const std::wstring issuer = FoldedName(FactsIn(listed).record.IssuerDN);
    const std::wstring reverse = FoldedName(FactsIn(listed).record.IssuerReverseDN);
    return std::any_of(alternatives.begin(), alternatives.end(), [&](const std::wstring& name) {
      return issuer.find(name) != std::wstring::npos || reverse.find(name) != std::wstring::npos;
    });
  };
}

Test SerialTest(LPCWSTR value) {
  const std::wstring wanted = WithoutLeadingZeros(value);
  return [wanted](const Listed& listed) {
    return WithoutLeadingZeros(FactsIn(listed).record.SerialNumber) == wanted;
  };
}

Test SubjectTest(LPCWSTR value) {
  const std::wstring part = Folded(value);
  return [part](const Listed& listed) { return Contains(FactsIn(listed).record.SubjectDN, part); };
}

Test CertNameTest(LPCWSTR value) {
  const std::wstring part = Folded(value);
  return [part](const Listed& listed) { return Contains(FactsIn(listed).record.SubjectCN, part); };
}

Test EmailTest(LPCWSTR value) {
  const std::wstring wanted = Folded(value);
  return [wanted](const Listed& listed) {
    const auto& emails = FactsIn(listed).emails;
    return std::any_of(emails.begin(), emails.end(),
                       [&](const std::wstring& email) { return Folded(email.c_str()) == wanted; });
  };
}

Test Base64Test(LPCWSTR value) {
  std::vector<BYTE> wanted;
  if (!DecodeBase64(Narrow(value), &wanted)) return nullptr;
  return [wanted](const Listed& listed) { return FactsIn(listed).der == wanted; };
}

Test KeySpecTest(LPCWSTR value) {
  const long wanted = NumberOf(value);
  if (wanted < 1 || wanted > 3) return nullptr;
  return [wanted](const Listed& listed) {
    return (FactsIn(listed).record.KeySpec & wanted) == wanted;
  };
}

Test KeyAttributeTest(LPCWSTR value) {
  const long wanted = NumberOf(value);
  if (wanted < 0) return nullptr;
  return [wanted](const Listed& listed) { return KeyStatusOf(*listed.identity) == wanted; };
}

Test LibraryTest(LPCWSTR value) {
  const std::wstring wanted = Folded(value);
  return [wanted](const Listed& listed) {
    return Folded(Wide(listed.family->InterfaceLibName).c_str()) == wanted;
  };
}

Test TimeTest(LPCWSTR value) {
  const long wanted = NumberOf(value);
  if (wanted < 0 || wanted > 2) return nullptr;
  const time_t now = time(nullptr);
  return [wanted, now](const Listed& listed) {
    const CertFacts& facts = FactsIn(listed);
    const bool inside = facts.notBefore <= now && now <= facts.notAfter;
    return wanted == 0 || inside == (wanted == 2);
  };
}

Test KeyUsageTest(LPCWSTR value) {
  const long wanted = NumberOf(value);
  if (wanted != 1 && wanted != 2) return nullptr;
  const DWORD bits = wanted == 1 ? kEncryptionBits : kSigningBits;
  return [bits](const Listed& listed) {
    const CertFacts& facts = FactsIn(listed);
    return !facts.hasKeyUsage || (facts.record.KeyUsage & bits) != 0;
  };
}

Test InterfaceTest(LPCWSTR value) {
  const long wanted = NumberOf(value);
  if (wanted < 0) return nullptr;
  return [wanted](const Listed& listed) { return listed.family->CryptoInterfaceType == wanted; };
}

Test BothUsesTest(LPCWSTR value) {
  const long wanted = NumberOf(value);
  if (wanted != 0 && wanted != 1) return nullptr;
  return [wanted](const Listed& listed) {
    return wanted == 0 || FactsIn(listed).record.KeySpec == VEL_KEY_SPEC_SIGNATURE_AND_EXCHANGE;
  };
}

// Null when the value is not understood.
Test MakeTest(VEL_CERT_FILTER_TYPE type, LPCWSTR value) {
  static const struct {
    VEL_CERT_FILTER_TYPE type;
    Test (*make)(LPCWSTR value);
  } kinds[] = {
      {VEL_CERT_FILTER_ISSUER_DN, IssuerTest},
      {VEL_CERT_FILTER_SUBJECT_SN, SerialTest},
      {VEL_CERT_FILTER_SUBJECT_DN, SubjectTest},
      {VEL_CERT_FILTER_EMAIL, EmailTest},
      {VEL_CERT_FILTER_BASE64, Base64Test},
      {VEL_CERT_FILTER_KEY_SPEC, KeySpecTest},
      {VEL_CERT_FILTER_KEY_ATTR_TYPE, KeyAttributeTest},
      {VEL_CERT_FILTER_LIBNAME, LibraryTest},
      {VEL_CERT_FILTER_TIME_VALID_TYPE, TimeTest},
      {VEL_CERT_FILTER_KEY_USAGE, KeyUsageTest},
      {VEL_CERT_FILTER_KEY_INTERFACE_TYPE, InterfaceTest},
      {VEL_CERT_FILTER_CERTNAME_TYPE, CertNameTest},
      {VEL_CERT_FILTER_DOUBLE_ATTR_SIGNATURE_AND_EXCHANGE, BothUsesTest},
  };
  if (value == nullptr || *value == L'\0') return nullptr;
  for (const auto& kind : kinds) {
    if (kind.type == type) return kind.make(value);
  }
  return nullptr;
}

}  // namespace

VEL_CERT_KEY_STATUS KeyStatusOf(const Identity& identity) {
  return identity.hasKey ? VEL_CERT_HAVE_CERT_AND_KEYPAIR : VEL_CERT_HAVE_CERT_ONLY;
}

Outcome Filters::Parse(ISmartList<tag_VEL_CERT_FILTER_ITEM>* items) {
  const long count = items == nullptr ? 0 : items->GetCount();
  for (int i = 0; i < count; ++i) {
    const tag_VEL_CERT_FILTER_ITEM& item = items->GetItem(i);
    Test test = MakeTest(item.Type, item.Value);
    if (test == nullptr) {
      return {kInvalidParameter, 0,
              "filter " + std::to_string(item.Type) + ": " + Narrow(item.Value)};
    }
    m_tests.emplace_back(item.Type, std::move(test));
  }
  return kOk;
}

bool Filters::Accept(const Listed& listed) const {
  return std::all_of(m_tests.begin(), m_tests.end(),
                     [&](const auto& test) { return test.second(listed); });
}

std::vector<VEL_CERT_FILTER_TYPE> Filters::Refusing(const Listed& listed) const {
  std::vector<VEL_CERT_FILTER_TYPE> types;
  for (const auto& [type, test] : m_tests) {
    if (!test(listed)) types.push_back(type);
  }
  return types;
}

}  // namespace velcrypto
