# Compiles the libcurl player. Sourced, not run.
need curl curl-config gcc
read -r -a flags < <(curl-config --cflags --libs | tr '\n' ' ')
gcc -std=c99 -Wall -Wextra -pedantic -Werror -o "$work/curl_rtsp" "$players/curl_rtsp.c" \
    "${flags[@]}" || fail "curl_rtsp.c does not compile"
