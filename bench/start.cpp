// Starts and ends: what that takes is what loading its shared objects takes.

int main() {}
