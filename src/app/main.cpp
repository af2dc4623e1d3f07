#include "app/application.h"

int main(int argc, char *argv[])
{
    return quillorn::runApplication(argc, argv);
}
