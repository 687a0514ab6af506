#pragma once

// Told once the data file has been read, so that defaults can be set where nothing was saved.
// Construction enters the object in the data saver's handlers, and destruction takes it out;
// an object made before the data saver exists is entered when the saver is built.
class DataLoadedEventHandler
{
public:
    DataLoadedEventHandler(DataLoadedEventHandler const&) = delete;
    DataLoadedEventHandler& operator=(DataLoadedEventHandler const&) = delete;

    virtual void DataLoaded() = 0;

protected:
    DataLoadedEventHandler();
    virtual ~DataLoadedEventHandler();
};
