// Writes a client data file that holds only the settings a measuring or picture-taking run
// needs: no port mapping, the given listening port, no user name, so that the client never logs
// in, and the folders given after the port shared with everyone.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "store/Data.h"
#include "store/DataSaver.h"

int main(int i_argc, char** i_argv)
{
    if (i_argc < 3 || std::atoi(i_argv[2]) < 1 || std::atoi(i_argv[2]) > 65535)
    {
        std::fprintf(stderr, "usage: %s DATA_FILE LISTENING_PORT [SHARED_FOLDER...]\n", i_argv[0]);
        return 2;
    }
    Data l_data;
    DataSaver l_saver;
    Type* lp_global = l_data.NewType("global", true, false, true);
    Type* lp_value = l_data.NewType("global_value", false, false, true);
    lp_global->RelateToType(lp_value, Many, One, false);
    Type* lp_folder = l_data.NewType("shared_folder", true, false, true);
    Type* lp_public = l_data.NewType("shared_public", false, true, true);
    lp_folder->RelateToType(lp_public, Many, One, false);
    l_saver.m_savedTypes = {"global", "shared_folder"};
    l_saver.AddSavedByConnectionType("global_value", "global");
    l_saver.AddSavedByConnectionType("shared_public", "shared_folder");
    lp_global->GetItem("use_upnp")->Connect(lp_value->GetItem("no"));
    lp_global->GetItem("listening_port")->Connect(lp_value->GetItem(std::string(i_argv[2])));
    for (int l_arg = 3; l_arg < i_argc; ++l_arg)
        lp_folder->GetItem(std::string(i_argv[l_arg]))->Connect(lp_public->NewItem());
    return l_saver.Save(&l_data, i_argv[1]) ? 0 : 1;
}
