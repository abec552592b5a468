#include "AuxClass.h"

#include <climits>

#include "SignedData.h"

namespace velcrypto {

namespace {

bool IsUsable(const tag_VEL_P1_TO_P7_PARAM& param) {
  return param.P1DataBuffer != nullptr && param.P1DataLen > 0 && param.P1DataLen < INT_MAX &&
         param.CertBuffer != nullptr &&
         (param.DetachType != FALSE || param.OrgDataBuffer != nullptr || param.OrgDataLen == 0);
}

Outcome Assemble(const tag_VEL_P1_TO_P7_PARAM& param, PBYTE result, DWORD* resultSize) {
  const X509Ptr signer = ParseCertificate(param.CertBuffer, param.CertLen);
  if (signer == nullptr) return {kInvalidParameter, 0, "no certificate"};
  const std::vector<BYTE> signature(param.P1DataBuffer, param.P1DataBuffer + param.P1DataLen);
  SignedDataParts parts;
  parts.signer = signer.get();
  parts.hashAlg = param.HashAlg;
  parts.signature = &signature;
  parts.content = param.OrgDataBuffer;
  parts.contentSize = param.OrgDataLen;
  parts.detached = param.DetachType != FALSE;
  parts.certificates = {signer.get()};
  SignedDataWriter writer;
  const Outcome outcome = writer.Assemble(parts);
  if (!outcome.ok()) return outcome;
  const DWORD room = *resultSize;
  *resultSize = writer.Size();
  if (result == nullptr) return kOk;
  return room < writer.Size() ? kBufferTooSmall : writer.Write(result);
}

}  // namespace

ULONG AuxClass::AssembleP1DataToP7Data(PVEL_P1_TO_P7_PARAM pParam, PBYTE pResult,
                                       DWORD* pResultLen) {
  return Recorded("AssembleP1DataToP7Data", [&](std::string&) -> Outcome {
    if (pParam == nullptr || pResultLen == nullptr || !IsUsable(*pParam)) {
      return kInvalidParameter;
    }
    return Assemble(*pParam, pResult, pResultLen);
  });
}

}  // namespace velcrypto
