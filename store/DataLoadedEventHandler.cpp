#include "store/DataLoadedEventHandler.h"

#include "store/DataSaver.h"

DataLoadedEventHandler::DataLoadedEventHandler()
{
    if (dataSaver)
        dataSaver->m_dataLoadedHandlers.insert(this);
    else
        DataSaver::WaitingHandlers().insert(this);
}

DataLoadedEventHandler::~DataLoadedEventHandler()
{
    if (dataSaver)
        dataSaver->m_dataLoadedHandlers.erase(this);
    DataSaver::WaitingHandlers().erase(this);
}
