extern void start_sockets();
void start_sockets() {}
