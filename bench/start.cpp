// Starts and ends at once: its run time is the time to load its shared objects.

int main() {}
