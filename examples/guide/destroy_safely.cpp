// Destroys an object while tasks and a timer for it are queued on a loop that goes on.

#include <nivur/nivur.h>

#include <cstdio>

class Camera {
  public:
    Camera(NIVUR::RunLoop& loop, int& pictures) : _loop(loop), _pictures(pictures) {
        // The object that a task acts on is what it can be cancelled by: a Functor0 names it by
        // itself, makeRunnable() is told.
        for (int i = 0; i < 10000; ++i) {
            _loop.postItem(new NIVUR::Functor0<Camera, void (Camera::*)()>(this, &Camera::shoot),
                           false, false);
        }
        _loop.addTimer(NIVUR::makeRunnable([this] { shoot(); }, this), 1, true);
    }

    // First of all, while every member is still there: waits for the task that runs, if any, and
    // drops the rest. No lock may be held here that shoot() takes.
    ~Camera() { _loop.cancelTasksForObject(this); }

    void waitForPicture() { _taken.wait(); }

  private:
    void shoot() {
        NIVUR::SystemUtil::sleep(1);
        ++_pictures;
        _taken.notify();
    }

    NIVUR::RunLoop& _loop;
    int& _pictures;
    NIVUR::Semaphore _taken;
};

int main() {
    int pictures = 0;
    NIVUR::RunLoop loop("camera");
    loop.start();
    {
        Camera camera(loop, pictures);
        camera.waitForPicture();
    }
    const int whenItWent = pictures;
    NIVUR::SystemUtil::sleep(20);
    int later = 0;
    loop.postItem(NIVUR::makeRunnable([&] { later = pictures - whenItWent; }), false, true);
    std::printf("while the camera lived: %s\n", whenItWent > 0 ? "pictures" : "nothing");
    std::printf("after it was gone: %d pictures, and the loop still answers\n", later);
    return whenItWent > 0 && later == 0 ? 0 : 1;
}
