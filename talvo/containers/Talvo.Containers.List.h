// SPDX-License-Identifier: Apache-2.0
#pragma once
// Lists: the array list, the linked list, and those of both kinds that announce their changes.

#include <talvo/containers/Talvo.Containers.Common.h>
#include <talvo/containers/list/ArrayList.h>
#include <talvo/containers/list/ChangeNotify.h>
#include <talvo/containers/list/LinkedList.h>
#include <talvo/containers/list/NotifyArrayList.h>
#include <talvo/containers/list/NotifyLinkedList.h>
