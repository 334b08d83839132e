#pragma once

namespace Tessarine::Core
{

class CryptoManager
{
};

} // namespace Tessarine::Core
