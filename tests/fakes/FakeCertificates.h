#pragma once
#include "FakeDevice.h"
#include "VelKeyTypes.h"

tag_VEL_CERT_INFO RecordOf(const FakeCert& cert);

// Whether the certificate passes those of the filters that the fake understands.
bool Passes(const FakeCert& cert, ISmartList<tag_VEL_CERT_FILTER_ITEM>& filters);
