#include "cvsservice.h"

int main(int argc, char** argv) {
    return cvsservice_main(argc, argv);
}
