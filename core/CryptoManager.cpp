#include "core/CryptoManager.h"
