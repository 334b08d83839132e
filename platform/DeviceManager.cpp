#include "platform/DeviceManager.h"

namespace Tessarine::Platform
{

DeviceManager::~DeviceManager() {}

} // namespace Tessarine::Platform
