#include "password_file.h"

#include "failure.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sys/stat.h>

namespace kovastream {

Password ReadPassword(const std::string &file)
{
    std::ifstream stream(file);
    if (!stream)
        throw Failure("the password file '" + file + "' cannot be read: " + strerror(errno));
    Password password;
    std::getline(stream, password.text);
    if (!password.text.empty() && password.text.back() == '\r')
        password.text.pop_back();
    if (password.text.empty())
        throw Failure("the password file '" + file + "' has no password in its first line");
    struct stat about = {};
    password.exposed = stat(file.c_str(), &about) == 0 && (about.st_mode & S_IROTH) != 0;
    return password;
}

} // namespace kovastream
