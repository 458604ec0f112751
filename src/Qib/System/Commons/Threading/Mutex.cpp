// A mutex, optionally recursive.
#include "Qib/System/Commons/Threading/Mutex.hpp"

namespace Qib::System::Commons::Threading
{

Mutex::Mutex(bool recursive) : handle()
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, recursive ? PTHREAD_MUTEX_RECURSIVE : PTHREAD_MUTEX_DEFAULT);
    pthread_mutex_init(&handle, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

Mutex::~Mutex()
{
    pthread_mutex_destroy(&handle);
}

void Mutex::Lock()
{
    pthread_mutex_lock(&handle);
}

bool Mutex::TryLock()
{
    return pthread_mutex_trylock(&handle) == 0;
}

void Mutex::Unlock()
{
    pthread_mutex_unlock(&handle);
}

} // namespace Qib::System::Commons::Threading
