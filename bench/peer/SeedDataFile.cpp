// Writes a client data file that holds only the settings a measuring run needs: no port
// mapping, the given listening port, and no user name, so that the client never logs in.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "store/Data.h"
#include "store/DataSaver.h"

int main(int i_argc, char** i_argv)
{
    if (i_argc != 3 || std::atoi(i_argv[2]) < 1 || std::atoi(i_argv[2]) > 65535)
    {
        std::fprintf(stderr, "usage: %s DATA_FILE LISTENING_PORT\n", i_argv[0]);
        return 2;
    }
    Data l_data;
    DataSaver l_saver;
    Type* lp_global = l_data.NewType("global", true, false, true);
    Type* lp_value = l_data.NewType("global_value", false, false, true);
    lp_global->RelateToType(lp_value, Many, One, false);
    l_saver.m_savedTypes.insert("global");
    l_saver.AddSavedByConnectionType("global_value", "global");
    lp_global->GetItem("use_upnp")->Connect(lp_value->GetItem("no"));
    lp_global->GetItem("listening_port")->Connect(lp_value->GetItem(std::string(i_argv[2])));
    return l_saver.Save(&l_data, i_argv[1]) ? 0 : 1;
}
