#include <nerva/nerva.h>

#include <cstdio>

int main()
{
    nerva::rectangle* r = nerva::make_rectangle(1, 2, 3, 4);
    const bool ok = r && r->xmax == 3 && r->ymax == 5;
    nerva::free_rectangle(r);
    std::printf("nerva %s %s\n", nerva::version(), ok ? "ok" : "broken");
    return ok ? 0 : 1;
}
