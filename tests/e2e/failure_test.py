"""What the user is told, and what is left on the disk, when something goes wrong."""

import shutil
import time

from recordcase import RecordCase, main
from stage import HOST, WORKER, wait_until
from stephost import StepHost
from video import Video, expect_pattern

VERIFICATION_FAILED = 11
PATH_TOO_LONG = 12
PREPARE_REFUSED = 13
START_REFUSED = 14
WORKER_GONE = 15
NOT_STARTED = 22
TIMED_OUT = 124
SYSTEM_TIMED_OUT = 258
WORKER_USAGE = 0x20000002
WORKER_NO_CHANNEL = 0x20000003
PATH_NOT_FOUND = 3  # the system's code
MODULE_NOT_FOUND = 126  # the system's code
ENCODER = "openh264.dll"
LAUNCH_USAGE = 64  # what launch.exe ends with when it is run with a worker's arguments

RECORDED_BYTES = 4000  # enough for several frames to be in the file
WRITE_LIMIT_S = 20
WORKER_END_LIMIT_S = 10


class Failure(RecordCase):
    def setUp(self):
        super().setUp()
        self.path = self.stage.new_path("screen.mp4")
        self.worker = self.stage.folder / WORKER

    def pose_as_worker(self, program):
        """Puts another program in the worker's place until the case ends."""
        self.addCleanup(self.restore_worker, self.worker.read_bytes())
        shutil.copy(self.stage.folder / program, self.worker)
        self.stage.trust(WORKER)

    def restore_worker(self, content):
        self.worker.write_bytes(content)
        self.stage.trust(WORKER)

    def expect_failure(self, result, code, sentence):
        self.expect_code(result, code)
        self.assertTrue(result.complaint.startswith("kxrecord: "), result.complaint)
        self.assertIn(sentence, result.complaint)
        self.assertEqual(result.complaint.count("\n"), 1, result.complaint)

    def expect_recording_works(self):
        path = self.stage.new_path("afterwards.mp4")
        self.expect_code(self.stage.run("record", path, "--seconds", 1), 0)
        expect_pattern(self, Video(path))

    def start_and_wait_for_pictures(self):
        run = self.stage.start("record", self.path, "--seconds", 60)
        self.assertIn(self.path.name, run.first_line())
        wait_until(lambda: self.path.exists() and self.path.stat().st_size > RECORDED_BYTES, WRITE_LIMIT_S,
                   "pictures in the file")
        return run

    def test_AlteredWorker_IsNotStartedUntilTheManifestNamesIt(self):
        original = self.worker.read_bytes()
        self.addCleanup(self.restore_worker, original)
        self.worker.write_bytes(original + b"\0")
        result = self.stage.run("record", self.path, "--seconds", 1)
        self.expect_failure(result, VERIFICATION_FAILED, "run \"kxrecord manifest KXVCR.exe\" (code 191)")
        self.assertIn("failed verification", result.complaint)
        self.assertFalse(self.path.exists())
        self.stage.trust(WORKER)
        self.expect_recording_works()

    def test_MissingManifest_IsAVerificationFailure(self):
        manifest = self.stage.folder / "config" / "CheckFileIntergrity.xml"
        manifest.unlink()
        result = self.stage.run("record", self.path, "--seconds", 1)
        self.expect_failure(result, VERIFICATION_FAILED, "run \"kxrecord manifest KXVCR.exe\" (code 191)")
        self.stage.trust(WORKER)
        self.expect_recording_works()

    def test_MissingWorker_IsSaidToBeMissing(self):
        aside = self.stage.folder / "aside.exe"
        self.worker.rename(aside)
        result = self.stage.run("record", self.path, "--seconds", 1)
        aside.rename(self.worker)
        self.expect_failure(result, VERIFICATION_FAILED, "KXVCR.exe is missing beside kxrecord.exe")
        self.expect_recording_works()

    def test_WorkerThatNeverGetsReady_IsEndedInTime(self):
        self.pose_as_worker("pattern.exe")
        result = self.stage.run("record", self.path, "--seconds", 1, "--timeout", 1500)
        self.expect_failure(result, TIMED_OUT, "did not get ready in time")

    def test_WorkerThatEndsAtOnce_HandsItsExitCodeOn(self):
        self.pose_as_worker("launch.exe")
        result = self.stage.run("record", self.path, "--seconds", 1)
        self.expect_failure(result, NOT_STARTED, f"(code {LAUNCH_USAGE})")
        self.assertIn("the worker could not be started, or ended before it was ready", result.complaint)

    def test_WorkerStartedByHand_SaysWhoStartsIt(self):
        for arguments in ([], ["-IPCproxy"], ["-IPCProxy", "more"]):
            result = self.stage.run(*arguments, program=WORKER)
            self.expect_code(result, WORKER_USAGE)
            self.assertEqual(result.complaint, "KXVCR.exe is started by its host program with the argument -IPCProxy; "
                                               "it does nothing else.\n")

    def test_WorkerOfAHostWithoutChannel_Ends(self):
        result = self.stage.run("-IPCProxy", program=WORKER)
        self.expect_code(result, WORKER_NO_CHANNEL)
        self.assertIn(f"Cannot connect to the host's channel: error {SYSTEM_TIMED_OUT} ", self.stage.worker_log())

    def take_encoder_away(self):
        """Leaves the place of the H.264 encoder empty until the case ends, and says where that is."""
        encoder = self.stage.folder / ENCODER
        aside = self.stage.folder / "aside.dll"
        encoder.rename(aside)
        self.addCleanup(aside.replace, encoder)
        return encoder

    def expect_encoder_is_blamed(self, reason):
        result = self.stage.run("record", self.path, "--seconds", 1)
        self.expect_failure(result, START_REFUSED, "openh264.dll is missing beside KXVCR.exe, or is not the version "
                                                   "that it knows; install it again")
        self.assertRegex(self.stage.worker_log(), reason)
        self.assertFalse(self.path.exists())

    def test_MissingEncoder_IsNamedAndTheOtherFormatStillRecords(self):
        self.take_encoder_away()
        self.expect_encoder_is_blamed(f"Cannot load the H.264 encoder .*{ENCODER}: error {MODULE_NOT_FOUND}")
        royalty_free = self.stage.new_path("screen.webm")
        self.expect_code(self.stage.run("record", royalty_free, "--seconds", 1), 0)
        expect_pattern(self, Video(royalty_free))

    def test_EncoderThatIsNoLibrary_IsNamed(self):
        self.take_encoder_away().write_text("no library")
        self.expect_encoder_is_blamed(f"Cannot load the H.264 encoder .*{ENCODER}: error ")

    def test_LibraryThatIsNoEncoder_IsNamed(self):
        shutil.copy(self.stage.folder / "libwinpthread-1.dll", self.take_encoder_away())
        self.expect_encoder_is_blamed(f"{ENCODER} is not the H.264 encoder: it lacks a function")

    def test_FolderThatDoesNotExist_IsRefused(self):
        result = self.stage.run("record", self.path / "screen.mp4", "--seconds", 1)
        self.expect_failure(result, START_REFUSED, "see that its folder exists")
        self.assertRegex(self.stage.worker_log(), f"Cannot create the file .*: error {PATH_NOT_FOUND} ")
        self.expect_recording_works()

    def test_PathThatIsTooLong_IsRefusedBeforeTheWorkerStarts(self):
        result = self.stage.run("record", self.path.parent / ("x" * 260 + ".mp4"), "--seconds", 1)
        self.expect_failure(result, PATH_TOO_LONG, "longer than 260 characters")

    def test_RegionOffTheScreen_IsRefused(self):
        result = self.stage.run("record", self.path, "--seconds", 1, "--region", "5000,5000,100,100")
        self.expect_failure(result, PREPARE_REFUSED,
                            "the region 5000,5000,100,100 is not wholly on the screen, which is 1280x720 (result -5)")
        self.assertIn("KXVCR.log", result.complaint)
        self.assertFalse(self.path.exists())

    def test_MonitorThatDoesNotExist_IsRefused(self):
        result = self.stage.run("record", self.path, "--seconds", 1, "--monitor", 9)
        self.expect_failure(result, PREPARE_REFUSED, "there is no monitor 9: this machine has 1 monitor (result -9)")
        self.assertGreater((self.stage.folder / "KXVCR.log").stat().st_size, 0)

    def test_FileOfARunningRecording_IsRefusedAndStaysWhole(self):
        with StepHost(self.stage, self.settings.bin) as first:
            first.prepare()
            first.start(self.path)
            began = time.monotonic()
            second = self.stage.run("record", self.path, "--seconds", 1)
            self.expect_failure(second, START_REFUSED, "no other program has the file open")
            lasted = time.monotonic() - began
            self.assertEqual(first.stop(), 0)
        video = Video(self.path)
        self.assertEqual(video.complaints, "")
        self.assertGreaterEqual(video.duration_s, lasted)

    def test_KilledHost_LeavesNoWorkerAndAFileThatPlays(self):
        run = self.start_and_wait_for_pictures()
        self.stage.kill(HOST)
        run.abandon()
        self.stage.expect_ended(WORKER, WORKER_END_LIMIT_S)
        video = Video(self.path)
        self.assertEqual(video.complaints, "")
        self.assertGreater(video.frames, 3)
        expect_pattern(self, video)

    def test_KilledWorker_IsReportedByTheHost(self):
        run = self.start_and_wait_for_pictures()
        self.stage.kill(WORKER)
        result = run.finish()
        self.expect_failure(result, WORKER_GONE, "ended by itself while it recorded")
        self.assertGreater(Video(self.path).frames, 3)
        self.expect_recording_works()


if __name__ == "__main__":
    main()
