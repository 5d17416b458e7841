# The calls of the C library that tests can stand in for: support/c_calls.h.
set(kova_led_calls malloc calloc realloc free mmap munmap pthread_create pthread_mutex_unlock
    socket bind listen setsockopt getsockopt accept accept4 send sendto sendmsg sendmmsg recv
    recvfrom close poll usleep fcntl getsockname getpeername rand time gettimeofday clock_gettime
    epoll_create1 epoll_ctl eventfd prctl syscall)
list(TRANSFORM kova_led_calls PREPEND "LINKER:--wrap=" OUTPUT_VARIABLE kova_led_call_options)
