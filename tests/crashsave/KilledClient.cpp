#include "KilledClient.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>
#include <vector>

extern char** environ;

KilledClient::~KilledClient()
{
    if (!IsRunning())
        return;
    Signal(SIGKILL);
    Wait(std::chrono::steady_clock::now() + std::chrono::seconds(10));
}

bool KilledClient::Start(std::string const& i_program, std::string const& i_home, std::string const& i_outputFile)
{
    std::vector<std::string> l_env;
    for (char** lp_entry = environ; *lp_entry; ++lp_entry)
    {
        std::string const l_entry(*lp_entry);
        if (l_entry.rfind("HOME=", 0) != 0 && l_entry.rfind("XDG_RUNTIME_DIR=", 0) != 0 && l_entry.rfind("QT_QPA_PLATFORM=", 0) != 0)
            l_env.push_back(l_entry);
    }
    l_env.push_back("HOME=" + i_home);
    l_env.push_back("XDG_RUNTIME_DIR=" + i_home);
    l_env.push_back("QT_QPA_PLATFORM=offscreen");
    std::vector<char*> l_envp;
    for (std::string& l_entry : l_env)
        l_envp.push_back(l_entry.data());
    l_envp.push_back(nullptr);
    std::string l_program = i_program;
    char* l_argv[] = {l_program.data(), nullptr};

    posix_spawn_file_actions_t l_actions;
    posix_spawn_file_actions_init(&l_actions);
    posix_spawn_file_actions_addopen(&l_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&l_actions, STDOUT_FILENO, i_outputFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_adddup2(&l_actions, STDOUT_FILENO, STDERR_FILENO);
    int const l_error = posix_spawn(&m_pid, l_program.c_str(), &l_actions, nullptr, l_argv, l_envp.data());
    posix_spawn_file_actions_destroy(&l_actions);
    if (l_error != 0)
        m_pid = -1;
    m_endSignal = m_exitStatus = 0;
    return m_pid > 0;
}

void KilledClient::Signal(int i_signal)
{
    if (IsRunning())
        ::kill(m_pid, i_signal);
}

bool KilledClient::Wait(std::chrono::steady_clock::time_point i_deadline)
{
    while (IsRunning())
    {
        int l_status = 0;
        pid_t const l_done = ::waitpid(m_pid, &l_status, WNOHANG);
        if (l_done == m_pid)
        {
            m_pid = -1;
            m_endSignal = WIFSIGNALED(l_status) ? WTERMSIG(l_status) : 0;
            m_exitStatus = WIFEXITED(l_status) ? WEXITSTATUS(l_status) : 0;
            return true;
        }
        if (std::chrono::steady_clock::now() >= i_deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}
