// The endpoints under attack by another local user (uid 65534): directories planted or opened to all,
// links swapped in while a process serves, a running endpoint removed, and impostors that serve first.

#include "Platform/Tul/Support/EchoHostFixture.h"
#include "Support/Stranger.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/TulTesting.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

using namespace Kiv::System::Tul;
using Kiv::Testing::AsStranger;
using Kiv::Testing::Stranger;
using ::testing::HasSubstr;

namespace
{
/// Binds and listens at `path`: "listening", or why not.
std::string ListenAt(const std::string& path)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    const bool ok =
        bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 && listen(fd, 16) == 0;
    return ok ? "listening" : std::strerror(errno);  // the descriptor stays open while the process runs
}

int Mode(const std::string& path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 ? static_cast<int>(status.st_mode & 07777) : -1;
}

class TulSecurityTest : public EchoHostFixture
{
protected:
    void SetUp() override
    {
        EchoHostFixture::SetUp();
        KIV_SKIP_UNLESS_ROOT();
        // Where everybody may create, as in /tmp.
        shared = directory + "/shared";
        ASSERT_EQ(mkdir(shared.c_str(), 0), 0);
        chmod(shared.c_str(), 01777);
    }

    /// Publishes the echo service as provider "A" with its endpoints in `endpoints`: the failure's
    /// message, empty when it serves.
    std::string PublishAt(const std::string& endpoints)
    {
        Kiv::System::Tul::Testing::UseNewTransport();
        settings.endpointDirectory = endpoints;
        ServiceManager::Configure(settings);
        try
        {
            ServiceManager::PublishService("A", Echo::serviceName, factory);
            return "";
        }
        catch (const Kiv::UnauthorizedAccessException& e)
        {
            return e.GetMessage();
        }
    }

    std::string MadeByStranger(const std::string& name)
    {
        const std::string path = shared + "/" + name;
        EXPECT_EQ(AsStranger([&] { return mkdir(path.c_str(), 0755) == 0 ? "made" : std::strerror(errno); }),
                  "made");
        return path;
    }

    std::string shared;
    Echo::EchoServiceFactory factory;
};
}  // namespace

TEST_F(TulSecurityTest, AnEndpointDirectoryOfAnotherUserOrOpenToOthersIsRefusedNamingPathOwnerAndMode)
{
    const auto own = [&](const std::string& name, mode_t mode)
    {
        const std::string path = directory + "/" + name;
        mkdir(path.c_str(), 0);
        chmod(path.c_str(), mode);
        return path;
    };
    const std::string planted = MadeByStranger("kiv-tul");
    const std::string openParent = own("open", 0777) + "/kiv-tul";
    mkdir(openParent.c_str(), 0755);
    const struct
    {
        std::string directory, offender, owner;
    } cases[] = {
        {planted, planted, "uid 65534 with mode 0755"},
        {own("all", 0777), directory + "/all", "uid 0 with mode 0777"},
        {own("sticky", 01777), directory + "/sticky", "uid 0 with mode 1777"},
        {own("group", 0775), directory + "/group", "uid 0 with mode 0775"},
        {openParent, directory + "/open", "uid 0 with mode 0777"},
    };
    for (const auto& c : cases)
    {
        EXPECT_THAT(PublishAt(c.directory), HasSubstr("'" + c.offender + "' belongs to " + c.owner))
            << c.directory;
    }
    const mode_t umask = ::umask(077);
    EXPECT_EQ(PublishAt(directory + "/made/here"), "");
    ::umask(umask);
    EXPECT_EQ(Mode(directory + "/made/here"), 0755);  // others connect, nobody else creates or removes
}

TEST_F(TulSecurityTest, ALinkSwappedForTheEndpointNeverChangesAFileOfTheServingUser)
{
    const std::string planted = MadeByStranger("kiv-tul");
    const std::string secret = directory + "/secret";
    close(open(secret.c_str(), O_CREAT | O_WRONLY, 0600));
    const std::string endpoint = planted + "/" + system + ".A.sock";
    Stranger swapper(
        [&](int out)
        {
            Stranger::Report(out, "swapping");
            for (;;)
            {
                symlink(secret.c_str(), endpoint.c_str());
                unlink(endpoint.c_str());
            }
        });
    ASSERT_EQ(swapper.ReadLine(), "swapping");
    for (int attempt = 0; attempt < 200; ++attempt)
    {
        ASSERT_THAT(PublishAt(planted), HasSubstr("belongs to uid 65534")) << attempt;
    }
    EXPECT_EQ(Mode(secret), 0600);
}

TEST_F(TulSecurityTest, AStrangerCanNeitherRemoveNorTakeOverARunningEndpoint)
{
    // This process makes the directory: the mode it gets is what stands between the stranger and the socket.
    const std::string endpoints = directory + "/run/kiv-tul";
    ASSERT_EQ(PublishAt(endpoints), "");
    const std::string endpoint = endpoints + "/" + system + ".A.sock";
    struct stat before = {}, after = {};
    ASSERT_EQ(lstat(endpoint.c_str(), &before), 0);
    EXPECT_EQ(AsStranger([&] { return unlink(endpoint.c_str()) == 0 ? "removed" : std::strerror(errno); }),
              std::strerror(EACCES));
    EXPECT_EQ(AsStranger([&] { return ListenAt(endpoints + "/" + system + ".B.sock"); }),
              std::strerror(EACCES));
    ASSERT_EQ(lstat(endpoint.c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
}

TEST_F(TulSecurityTest, AClientRefusesAnEndpointThatAStrangerServesOrWhoseDirectoryAStrangerOwns)
{
    const std::string sharedByAll = directory + "/open";  // as the old default was made
    mkdir(sharedByAll.c_str(), 0);
    chmod(sharedByAll.c_str(), 01777);
    const struct
    {
        std::string directory, refusal;
    } cases[] = {
        {MadeByStranger("evil"), "is in a directory of uid 65534"},
        {sharedByAll, "of uid 65534, which this process doesn't trust"},
    };
    for (const auto& c : cases)
    {
        const std::string endpoint = c.directory + "/" + system + ".B.sock";
        Stranger impostor(
            [&](int out)
            {
                Stranger::Report(out, ListenAt(endpoint));
                pause();  // serving until killed
            });
        ASSERT_EQ(impostor.ReadLine(), "listening");
        Kiv::System::Tul::Testing::UseNewTransport();
        settings.endpointDirectory = c.directory;
        settings.callTimeLimit = std::chrono::seconds(1);
        ServiceManager::Configure(settings);
        try
        {
            Echo::GetEcho("B");
            ADD_FAILURE() << "a client used the endpoint of uid 65534 in " << c.directory;
        }
        catch (const Kiv::CommunicationException& e)
        {
            EXPECT_THAT(e.GetMessage(), HasSubstr(c.refusal));
            EXPECT_THAT(e.GetMessage(), HasSubstr("'" + endpoint + "'"));
            EXPECT_THAT(e.GetMessage(), HasSubstr("trusted are uids 0 (root)"));
        }
    }
}
