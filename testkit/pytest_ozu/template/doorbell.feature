Feature: The doorbell

  Background:
    Given a panel with the process "doorbell"

  Scenario: a ring is told when DNS refuses
    Given DNS is refuse
    When the message is sent to "Process/DOORBELL" from "KEYPAD" with class 1 and command 1
    Then the log line "the push server has no address" is written by "DOORBELL"
    And a message is sent to "Multicast/DOORBELL" with class 1 and command 2

  Scenario: nothing rings during an alarm
    When partition FULL is in alarm
    And the message is sent to "Process/DOORBELL" with class 1 and command 1
    Then the log line "no chime during an alarm" is written
    And no message is sent to "Multicast/DOORBELL"

  Scenario: a ring after a power cut
    Given DNS is honest
    When the message is sent to "Process/DOORBELL" with class 1 and command 1
    Then the log line "push server at 10.77.0.1" is written
    And a message is sent to "Multicast/DOORBELL"
    When the power is cut
    And the message is sent to "Process/DOORBELL" with class 1 and command 1
    Then a message is sent to "Multicast/DOORBELL"
