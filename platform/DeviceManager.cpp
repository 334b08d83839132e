#include "platform/DeviceManager.h"

namespace Tessarine::Platform
{

DeviceManager::~DeviceManager() = default;

} // namespace Tessarine::Platform
