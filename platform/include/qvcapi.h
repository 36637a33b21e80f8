// The CryptoAPI layer and support library the chain policies run on.
#pragma once

#include "qvcapi/types.h"
#include "qvcapi/cert.h"
#include "qvcapi/support.h"
#include "qvcapi/policy.h"
#include "qvcapi/prov.h"
