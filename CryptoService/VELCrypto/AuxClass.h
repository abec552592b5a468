#pragma once
// Conversions that need no device. Any thread.
#include "Object.h"
#include "VELUsbKeyDll.h"

namespace velcrypto {

class AuxClass : public Object<IVELKeyAuxClass> {
 public:
  // Wraps a bare signature and the signer's certificate into PKCS#7, as P7Sign builds it. The
  // signature is not checked: the content may be another than the signed one.
  // pResult     null asks for the size.
  // pResultLen  in: bytes at pResult. Out: bytes needed or written.
  ULONG AssembleP1DataToP7Data(PVEL_P1_TO_P7_PARAM pParam, PBYTE pResult,
                               DWORD* pResultLen) override;

  ULONG CheckCertExistBySerialNum(IVELUsbKeyClass*, VEL_CRYPTO_INTERFACE_TYPE, LPCSTR, LPCSTR,
                                  BOOL*) override {
    return kNotSupported;
  }
  ULONG MSRSAHashDer2BYTE(PBYTE, DWORD, PBYTE, DWORD*) override { return kNotSupported; }
  ULONG BYTE2MSRSAHashDer(PBYTE, DWORD, PBYTE, DWORD*) override { return kNotSupported; }
  ULONG AssembleRSAPubKeyStruct(PBYTE, DWORD, PBYTE, DWORD*) override { return kNotSupported; }
  ULONG ConvertPkcs7ToPkcs1(PBYTE, DWORD, PBYTE, DWORD*) override { return kNotSupported; }
  ULONG GetXMLSignatureInfo(LPCSTR, LPCSTR, PBYTE, DWORD*) override { return kNotSupported; }
  ULONG GetP7EnvelopeInfo(PBYTE, DWORD, LPCSTR, PBYTE, DWORD*) override { return kNotSupported; }
};

}  // namespace velcrypto
