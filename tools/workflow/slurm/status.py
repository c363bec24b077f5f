#!/usr/bin/env python3
"""Says of a job of Slurm, named by its number, what snakemake asks for: running, success or failed."""
# SPDX-License-Identifier: GPL-3.0-or-later
import subprocess
import sys
import time

WAITING = {"PENDING", "CONFIGURING", "RUNNING", "SUSPENDED", "COMPLETING", "REQUEUED", "RESIZING",
           "REQUEUE_HOLD", "REQUEUE_FED", "SIGNALING", "STAGE_OUT", "STOPPED", "SPECIAL_EXIT"}
# squeue knows a job for some minutes after its end, sacct for longer where jobs are recorded at all.
QUESTIONS = (["squeue", "--noheader", "--states=all", "--format=%T", "--jobs"],
             ["sacct", "--noheader", "--parsable2", "--allocations", "--format=State", "--jobs"])
ATTEMPTS, PAUSE = 3, 5.0  # seconds; a busy controller does not answer for a while


def state_of(job):
    for attempt in range(ATTEMPTS):
        for question in QUESTIONS:
            try:
                done = subprocess.run([*question, job], capture_output=True, text=True, timeout=60)
            except (FileNotFoundError, subprocess.TimeoutExpired):
                continue
            words = done.stdout.split()  # "CANCELLED by 1000" is one state
            if done.returncode == 0 and words:
                return words[0].rstrip("+")
        if attempt + 1 < ATTEMPTS:
            time.sleep(PAUSE)
    return "UNKNOWN"


state = state_of(sys.argv[1])
print("running" if state in WAITING else "success" if state == "COMPLETED" else "failed")
