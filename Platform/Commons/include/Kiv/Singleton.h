#pragma once

#include <Kiv/Exception.h>
#include <Kiv/TypeNames.h>

namespace Kiv::System::Commons
{
/// A process-global instance of T, created and destroyed by its owner; null while it does not exist.
template <class T>
struct Singleton
{
    static T* pInstance;

    /// The instance; raises Exception "Singleton instance of type '{0}' was not created yet!" without one.
    static T& GetInstance()
    {
        T* instance = pInstance;
        if (instance == nullptr)
        {
            throw Exception("Singleton instance of type '{0}' was not created yet!", ReadableTypeName(typeid(T)));
        }
        return *instance;
    }
};
}  // namespace Kiv::System::Commons
