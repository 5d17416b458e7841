#include "tests/support/c_calls.h"

#include <cstdarg>

namespace {

/// The stand-in, or the function itself.
template <auto *pfnReal, typename... Arguments> auto Lead(Arguments... arguments)
{
    const auto pfnInstead = KovaStandIn<pfnReal>.load();
    return (pfnInstead != nullptr ? pfnInstead : pfnReal)(arguments...);
}

} // namespace

// What the linker puts in the place of the C library's functions.

extern "C" {

int __real_fcntl(int nDescriptor, int nCommand, ...);

void *__wrap_malloc(size_t nSize)
{
    return Lead<__real_malloc>(nSize);
}

void *__wrap_calloc(size_t nCount, size_t nSize)
{
    return Lead<__real_calloc>(nCount, nSize);
}

void *__wrap_realloc(void *pBlock, size_t nSize)
{
    return Lead<__real_realloc>(pBlock, nSize);
}

void __wrap_free(void *pBlock)
{
    return Lead<__real_free>(pBlock);
}

void *__wrap_mmap(void *pWish, size_t nSize, int nProtection, int nFlags, int nFile, off_t nOffset)
{
    return Lead<__real_mmap>(pWish, nSize, nProtection, nFlags, nFile, nOffset);
}

int __wrap_munmap(void *pPages, size_t nSize)
{
    return Lead<__real_munmap>(pPages, nSize);
}

int __wrap_pthread_create(pthread_t *pThread, const pthread_attr_t *pAttributes,
                          void *(*pfnBody)(void *), void *pArgument)
{
    return Lead<__real_pthread_create>(pThread, pAttributes, pfnBody, pArgument);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t *pMutex)
{
    return Lead<__real_pthread_mutex_unlock>(pMutex);
}

int __wrap_socket(int nDomain, int nType, int nProtocol)
{
    return Lead<__real_socket>(nDomain, nType, nProtocol);
}

int __wrap_bind(int nSocket, const sockaddr *pAddress, socklen_t nSize)
{
    return Lead<__real_bind>(nSocket, pAddress, nSize);
}

int __wrap_epoll_create1(int nFlags)
{
    return Lead<__real_epoll_create1>(nFlags);
}

int __wrap_epoll_ctl(int nEpoll, int nOperation, int nDescriptor, epoll_event *pEvent)
{
    return Lead<__real_epoll_ctl>(nEpoll, nOperation, nDescriptor, pEvent);
}

int __wrap_eventfd(unsigned nValue, int nFlags)
{
    return Lead<__real_eventfd>(nValue, nFlags);
}

int __wrap_listen(int nSocket, int nBacklog)
{
    return Lead<__real_listen>(nSocket, nBacklog);
}

int __wrap_setsockopt(int nSocket, int nLevel, int nName, const void *pValue, socklen_t nSize)
{
    return Lead<__real_setsockopt>(nSocket, nLevel, nName, pValue, nSize);
}

int __wrap_getsockopt(int nSocket, int nLevel, int nName, void *pValue, socklen_t *pSize)
{
    return Lead<__real_getsockopt>(nSocket, nLevel, nName, pValue, pSize);
}

int __wrap_accept(int nSocket, sockaddr *pAddress, socklen_t *pSize)
{
    return Lead<__real_accept>(nSocket, pAddress, pSize);
}

int __wrap_accept4(int nSocket, sockaddr *pAddress, socklen_t *pSize, int nFlags)
{
    return Lead<__real_accept4>(nSocket, pAddress, pSize, nFlags);
}

ssize_t __wrap_send(int nSocket, const void *pData, size_t nSize, int nFlags)
{
    return Lead<__real_send>(nSocket, pData, nSize, nFlags);
}

ssize_t __wrap_sendto(int nSocket, const void *pData, size_t nSize, int nFlags,
                      const sockaddr *pAddress, socklen_t nAddressSize)
{
    return Lead<__real_sendto>(nSocket, pData, nSize, nFlags, pAddress, nAddressSize);
}

ssize_t __wrap_sendmsg(int nSocket, const msghdr *pMessage, int nFlags)
{
    return Lead<__real_sendmsg>(nSocket, pMessage, nFlags);
}

int __wrap_sendmmsg(int nSocket, mmsghdr *pMessages, unsigned nCount, int nFlags)
{
    return Lead<__real_sendmmsg>(nSocket, pMessages, nCount, nFlags);
}

ssize_t __wrap_recv(int nSocket, void *pData, size_t nSize, int nFlags)
{
    return Lead<__real_recv>(nSocket, pData, nSize, nFlags);
}

ssize_t __wrap_recvfrom(int nSocket, void *pData, size_t nSize, int nFlags, sockaddr *pAddress,
                        socklen_t *pAddressSize)
{
    return Lead<__real_recvfrom>(nSocket, pData, nSize, nFlags, pAddress, pAddressSize);
}

int __wrap_close(int nDescriptor)
{
    return Lead<__real_close>(nDescriptor);
}

int __wrap_poll(pollfd *pEntries, nfds_t nEntries, int nMilliseconds)
{
    return Lead<__real_poll>(pEntries, nEntries, nMilliseconds);
}

int __wrap_usleep(useconds_t nMicroseconds)
{
    return Lead<__real_usleep>(nMicroseconds);
}

int __wrap_getsockname(int nSocket, sockaddr *pAddress, socklen_t *pSize)
{
    return Lead<__real_getsockname>(nSocket, pAddress, pSize);
}

int __wrap_getpeername(int nSocket, sockaddr *pAddress, socklen_t *pSize)
{
    return Lead<__real_getpeername>(nSocket, pAddress, pSize);
}

int __wrap_rand()
{
    return Lead<__real_rand>();
}

time_t __wrap_time(time_t *pTime)
{
    return Lead<__real_time>(pTime);
}

int __wrap_gettimeofday(timeval *pTime, void *pZone)
{
    return Lead<__real_gettimeofday>(pTime, pZone);
}

int __wrap_clock_gettime(clockid_t nClock, timespec *pTime)
{
    return Lead<__real_clock_gettime>(nClock, pTime);
}

int __wrap_prctl(int nOption, unsigned long nFirst, unsigned long nSecond, unsigned long nThird,
                 unsigned long nFourth)
{
    return Lead<__real_prctl>(nOption, nFirst, nSecond, nThird, nFourth);
}

long __wrap_syscall(long nNumber, long nFirst, long nSecond, long nThird, long nFourth, long nFifth,
                    long nSixth)
{
    return Lead<__real_syscall>(nNumber, nFirst, nSecond, nThird, nFourth, nFifth, nSixth);
}

int __wrap_fcntl(int nDescriptor, int nCommand, ...)
{
    va_list arguments;
    va_start(arguments, nCommand);
    const int nArgument = va_arg(arguments, int);
    va_end(arguments);
    return Lead<KovaRealControl>(nDescriptor, nCommand, nArgument);
}

} // extern "C"

int KovaRealControl(int nDescriptor, int nCommand, int nArgument)
{
    return __real_fcntl(nDescriptor, nCommand, nArgument);
}
