#include "deployment/PortableBundleManager.h"

namespace Tessarine::Deployment
{

PortableBundleResult
PortableBundleManager::preparePortableBundle(const QString & /*usbRoot*/,
                                             const PortableBundleOptions & /*options*/,
                                             const PreparationProgress & /*progress*/) const
{
    return {};
}

} // namespace Tessarine::Deployment
