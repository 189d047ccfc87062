#include <history/FaultRecorder.h>

int main()
{
    firaim::FaultRecorder recorder;
    int const opened = recorder.open("faults.db");
    firaim::FaultEvent event;
    event.code = FC_SENSOR_TIMEOUT;
    event.module = "adc";
    event.description = "no answer for 500 ms";
    return opened == firaim::HISTORY_OK && recorder.record(event).result == firaim::HISTORY_OK ? 0 : 1;
}
