// Destroys an object while tasks and a timer for it are queued on a loop that keeps running.

#include <nivur/nivur.h>

#include <cstdio>

class Camera {
  public:
    Camera(NIVUR::RunLoop& loop, int& pictures) : _loop(loop), _pictures(pictures) {
        // Tasks are cancelled by the object that they act on: a Functor0 knows it, makeRunnable()
        // is given it.
        for (int i = 0; i < 10000; ++i) {
            _loop.postItem(new NIVUR::Functor0<Camera, void (Camera::*)()>(this, &Camera::shoot),
                           false, false);
        }
        _loop.addTimer(NIVUR::makeRunnable([this] { shoot(); }, this), 1, true);
    }

    // First, while every member still exists: waits for the running task, if any, and drops the
    // rest. Do not hold a lock here that shoot() acquires.
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
    const int picturesBefore = pictures;
    NIVUR::SystemUtil::sleep(20);
    int later = 0;
    loop.postItem(NIVUR::makeRunnable([&] { later = pictures - picturesBefore; }), false, true);
    std::printf("while the camera existed: %s\n", picturesBefore > 0 ? "pictures" : "nothing");
    std::printf("after it was destroyed: %d pictures, and the loop still answers\n", later);
    return picturesBefore > 0 && later == 0 ? 0 : 1;
}
