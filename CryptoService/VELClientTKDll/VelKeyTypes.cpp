#include "VelKeyTypes.h"

#include "VELCstring.h"

namespace {

struct Name {
  const wchar_t* text;
  int value;
};

constexpr Name kHashNames[] = {
    {L"MD2", VEL_HASH_ALG_MD2},       {L"MD5", VEL_HASH_ALG_MD5},
    {L"SHA1", VEL_HASH_ALG_SHA1},     {L"SHA256", VEL_HASH_ALG_SHA256},
    {L"SHA512", VEL_HASH_ALG_SHA512}, {L"SM3", VEL_HASH_ALG_SM3},
};

constexpr Name kInterfaceNames[] = {
    {L"SKF11", VEL_CRYPTO_INTERFACE_TYPE_SKF},
    {L"SKF", VEL_CRYPTO_INTERFACE_TYPE_SKF},
    {L"P11", VEL_CRYPTO_INTERFACE_TYPE_P11},
    {L"CSP", VEL_CRYPTO_INTERFACE_TYPE_CSP},
    {L"GA_NOM", VEL_CRYPTO_INTERFACE_TYPE_P11_GA_NOM},
    {L"P11_GA_NOM", VEL_CRYPTO_INTERFACE_TYPE_P11_GA_NOM},
    {L"GA_BAK", VEL_CRYPTO_INTERFACE_TYPE_P11_GA_BAK},
    {L"P11_GA_BAK", VEL_CRYPTO_INTERFACE_TYPE_P11_GA_BAK},
    {L"PLA1", VEL_CRYPTO_INTERFACE_TYPE_P11_PLA1},
    {L"P11_PLA1", VEL_CRYPTO_INTERFACE_TYPE_P11_PLA1},
    {L"PLA2", VEL_CRYPTO_INTERFACE_TYPE_P11_PLA2},
    {L"P11_PLA2", VEL_CRYPTO_INTERFACE_TYPE_P11_PLA2},
    {L"PLA3", VEL_CRYPTO_INTERFACE_TYPE_P11_PLA3},
    {L"P11_PLA3", VEL_CRYPTO_INTERFACE_TYPE_P11_PLA3},
    {L"FIN56", VEL_CRYPTO_INTERFACE_TYPE_P11_FIN56},
    {L"P11_FIN56", VEL_CRYPTO_INTERFACE_TYPE_P11_FIN56},
    {L"PM", VEL_CRYPTO_INTERFACE_TYPE_PM},
};

// The value of the whole name, 0 when it is not in the table.
template <size_t N>
int ValueOf(const Name (&table)[N], const wchar_t* text) {
  if (text == nullptr) return 0;
  for (const Name& name : table)
    if (_wcsicmp(text, name.text) == 0) return name.value;
  return 0;
}

}  // namespace

CString StrHashAlg(VEL_HASH_ALG alg) {
  for (const Name& name : kHashNames)
    if (name.value == alg && alg != VEL_HASH_ALG_SHA512) return name.text;
  return L"UNKNOWN";
}

VEL_HASH_ALG EnumHashAlg(const wchar_t* name) {
  return static_cast<VEL_HASH_ALG>(ValueOf(kHashNames, name));
}

CString StrAsymmAlg(VEL_ASYMM_ALG alg) {
  switch (alg) {
    case VEL_ASYMM_ALG_RSA:
      return L"RSA";
    case VEL_ASYMM_ALG_SM2:
      return L"SM2";
    case VEL_ASYMM_ALG_PM:
      return L"PM";
    default:
      return L"UNKNOWN";
  }
}

VEL_CRYPTO_INTERFACE_TYPE EnumCryptoInterfaceType(const wchar_t* name) {
  return static_cast<VEL_CRYPTO_INTERFACE_TYPE>(ValueOf(kInterfaceNames, name));
}
